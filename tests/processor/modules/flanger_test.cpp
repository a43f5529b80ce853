#include "effecttest.h"
#include "processor/modules/flanger.h"

// Fully wet impulse response (the negated delayed signal); depth 0.5: 0.5^2 x 2000 = 500 samples.
std::vector<float> Response(float rate, float delay, float feedback, size_t settleBlocks) {
    Fx<FlangerState> f({rate, 0.5f, feedback, delay});
    for (size_t block = 0; block < settleBlocks; ++block) f.Run(Constant(32));
    return f.Run(Impulse(2048)).left;
}

// Delay 0: no sweep at any rate; rate below 0.01 (not above): the sweep stays at phase 0, its
// longest delay. fb = 1.9 feedback - 0.95: the second pass comes one loop (delay + 1) later, x fb.
TEST(Flanger, LongestDelayWithoutSweepAndTheFeedbackLaw) {
    for (auto [rate, delay] : {std::pair{0.8f, 0.0f}, {0.005f, 1.0f}})
        for (auto [settle, feedback] : {std::pair{0, 1.0f}, {777, 0.0f}, {5000, 0.5f}}) {
            const std::vector<float> out = Response(rate, delay, feedback, settle);
            EXPECT_FLOAT_EQ(out[500], -1.0f) << rate << " after " << settle;
            EXPECT_NEAR(out[1001], -(1.9f * feedback - 0.95f), 1e-6f) << feedback;
            EXPECT_FLOAT_EQ(Peak({out, out}), 1.0f);
        }
    EXPECT_NE(Response(0.011f, 1.0f, 0.5f, 5000)[500], -1.0f);
}
