#include "dsp/smoother.h"
#include <cmath>
#include <gtest/gtest.h>

using Norvell::dsp::Smoother;

// Coefficient at 0.02 s: 1 - exp(-1 / (0.02 x 44100)); the gap shrinks by (1 - kC) per sample.
const float kC = 1.0f - std::exp(-1.0f / (0.02f * 44100.0f));
int SamplesToSnap(Smoother& s) {
    int n = 0;
    for (; s.Current() != s.Target() && n < 1000000; ++n) s.Next();
    return n;
}

TEST(Smoother, FirstStepThenSnapBelowIt) {
    Smoother s(0.02f);
    EXPECT_FLOAT_EQ(s.Coefficient(), kC);
    s.SetTarget(1.0f);
    EXPECT_EQ(s.Current(), 0.0f);
    EXPECT_FLOAT_EQ(s.Threshold(), kC); // step kC beats the floor 1e-6 / kC
    EXPECT_FLOAT_EQ(s.Next(), kC);
    EXPECT_NEAR(SamplesToSnap(s) + 1, std::ceil(std::log(kC) / std::log(1.0 - kC)), 1);
    s.SetTarget(1.0f); // the same target again changes nothing
    EXPECT_FLOAT_EQ(s.Threshold(), kC);
    s.SetSampleRate(96000.0f);
    EXPECT_FLOAT_EQ(s.Coefficient(), 1.0f - std::exp(-1.0f / (0.02f * 96000.0f)));
}

TEST(Smoother, ThresholdIncludesTheFloorTerm) {
    Smoother s(0.02f);
    const float floor = 2e-6f / kC;
    s.Jump(1.9f);
    s.SetTarget(2.0f); // step 0.1 kC, floor 1e-6 / kC x 2: the floor wins
    EXPECT_FLOAT_EQ(s.Threshold(), floor);
    EXPECT_NEAR(SamplesToSnap(s), std::ceil(std::log(floor / 0.1) / std::log(1.0 - kC)), 1);
    s.Jump(0.5f); // a target of 0 has floor 0: the step alone
    s.SetTarget(0.0f);
    EXPECT_FLOAT_EQ(s.Threshold(), 0.5f * kC);
    s.Jump(0.0005f); // but never below 1e-6
    s.SetTarget(0.0f);
    EXPECT_FLOAT_EQ(s.Threshold(), 1e-6f);
}
