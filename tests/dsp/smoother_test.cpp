#include "dsp/smoother.h"

#include <gtest/gtest.h>

#include <cmath>

using Norvell::dsp::Smoother;

namespace {

float Coefficient(float time, float rate) {
    return 1.0f - std::exp(-1.0f / (time * rate));
}

int SamplesToSnap(Smoother& s) {
    int n = 0;
    for (; s.Current() != s.Target() && n < 1000000; ++n) s.Next();
    return n;
}

} // namespace

TEST(Smoother, CoefficientFollowsTheSampleRate) {
    Smoother s(0.04f);
    EXPECT_FLOAT_EQ(s.Coefficient(), Coefficient(0.04f, 44100.0f));
    s.SetSampleRate(96000.0f);
    EXPECT_FLOAT_EQ(s.Coefficient(), Coefficient(0.04f, 96000.0f));
}

TEST(Smoother, FirstStepThenSnapBelowIt) {
    Smoother s(0.02f);
    const float c = Coefficient(0.02f, 44100.0f);
    s.SetTarget(1.0f);
    EXPECT_EQ(s.Current(), 0.0f);
    EXPECT_FLOAT_EQ(s.Threshold(), c); // step c beats the floor 1e-6 / c
    EXPECT_FLOAT_EQ(s.Next(), c);
    // The gap (1 - c)^n snaps once below c.
    EXPECT_NEAR(SamplesToSnap(s) + 1, std::ceil(std::log(c) / std::log(1.0 - c)), 1);
    // The same target again changes nothing.
    s.SetTarget(1.0f);
    EXPECT_FLOAT_EQ(s.Threshold(), c);
}

TEST(Smoother, ThresholdIncludesTheFloorTerm) {
    Smoother s(0.02f);
    const float c = Coefficient(0.02f, 44100.0f);
    s.Jump(0.9f);
    s.SetTarget(1.0f); // step 0.1 c, floor 1e-6 / c x 1: the floor wins
    const float floor = 0.000001f / c;
    EXPECT_FLOAT_EQ(s.Threshold(), floor);
    EXPECT_NEAR(SamplesToSnap(s), std::ceil(std::log(floor / 0.1) / std::log(1.0 - c)), 1);
    // A target of 0 has floor 0: the threshold is the step alone.
    s.SetTarget(0.0f);
    EXPECT_FLOAT_EQ(s.Threshold(), c);
}
