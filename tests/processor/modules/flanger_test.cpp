#include "effecttest.h"
#include "processor/modules/flanger.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace Norvell::Vantor;
using namespace VantorTest;

namespace {

// Fully wet response to an impulse; the wet mix is the negated delayed signal.
std::vector<float> Response(float rate, float delay, float feedback, int settleBlocks = 300) {
    FlangerState s;
    Knobs<kFlangerParamCount> knobs{s.params};
    knobs[kFlangerRate] = rate;
    knobs[kFlangerDepth] = 0.5f; // 0.5^2 x 2000 = 500 samples in all
    knobs[kFlangerDelay] = delay;
    knobs[kFlangerFeedback] = feedback;
    knobs[kFlangerDryWet] = 1.0f;
    Init(s);
    RunSilence(s, 32 * static_cast<size_t>(settleBlocks));
    return RunEffect(s, Impulse(2048)).left;
}

} // namespace

TEST(Flanger, NoSweepOrFrozenSweepGiveTheLongestDelay) {
    // delay 0: no sweep at any rate; rate below 0.01: the sweep stays at
    // phase 0, where the full sweep adds the largest delay.
    for (auto [rate, delay] : {std::pair{0.8f, 0.0f}, {0.005f, 1.0f}}) {
        for (int settle : {0, 777, 5000}) {
            const std::vector<float> out = Response(rate, delay, 0.5f, settle);
            EXPECT_FLOAT_EQ(out[500], -1.0f) << rate << " after " << settle;
            EXPECT_FLOAT_EQ(Peak({out, out}), 1.0f);
        }
    }
    // Just above the limit the sweep moves the delay.
    EXPECT_NE(Response(0.011f, 1.0f, 0.5f, 5000)[500], -1.0f);
}

TEST(Flanger, FeedbackLaw) {
    // fb = 1.9 feedback - 0.95: the second pass comes one loop (delay plus
    // one sample) later, scaled by fb.
    for (float feedback : {1.0f, 0.0f, 0.5f}) {
        const std::vector<float> out = Response(0.8f, 0.0f, feedback, 0);
        EXPECT_FLOAT_EQ(out[500], -1.0f);
        EXPECT_NEAR(out[1001], -(1.9f * feedback - 0.95f), 1e-6f) << feedback;
    }
}
