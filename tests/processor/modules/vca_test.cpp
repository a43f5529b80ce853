#include "processor/modules/vca.h"
#include <gtest/gtest.h>
using namespace Norvell::Vantor;
TEST(VcaTest, LevelModulationSettlesClampsAndNeverInverts) {
    VcaState vca;
    float gain = 0.0f, in[kBlockSize], mod[kBlockSize], out[kBlockSize];
    float *ins[2] = {in, mod}, *outs[1] = {out};
    vca.params.bound[0] = &gain;
    const auto run = [&](int blocks, float level, float x) { // constant input and modulation
        std::fill(in, in + kBlockSize, x), std::fill(mod, mod + kBlockSize, level);
        for (int b = 0; b < blocks; ++b) Process(vca, ins, 2, outs, 1, ProcessContext{});
    };
    run(1, 0.5f, 1.0f);
    for (int n = 0; n < kBlockSize; ++n)
        ASSERT_NEAR(out[n], 0.5 * (1.0 - std::pow(1.0 - 0.1003797, n + 1)), 1e-6) << n;
    run(1, 0.5f, 1.0f); // within 1% from response sample 44, sample 11 of the second block
    EXPECT_GT(out[11], 0.495f);
    EXPECT_LT(out[10], 0.495f);
    gain = 0.7f, run(10, 0.5f, 1.0f);
    EXPECT_EQ(out[31], 1.0f);
    gain = 0.3f, run(10, -1.0f, -1.0f);
    EXPECT_EQ(out[31], 0.0f);
}

// Silence into a settled smoother takes a shortcut; it must give what the
// one-pole gives, and hand over to it as soon as the input moves.
TEST(VcaTest, SilentModulationGivesTheSmootherResult) {
    VcaState vca;
    float gain = 0.25f;
    float in[kBlockSize];
    float mod[kBlockSize] = {};
    float out[kBlockSize];
    float* ins[2] = {in, mod};
    float* outs[1] = {out};
    vca.params.bound[0] = &gain;
    for (int n = 0; n < kBlockSize; ++n) in[n] = n % 2 == 0 ? 1.0f : -1.0f;

    Process(vca, ins, 2, outs, 1, ProcessContext{});
    EXPECT_EQ(out[0], 0.25f);
    EXPECT_EQ(out[1], -0.25f);
    EXPECT_EQ(vca.smoothed[31], 0.0f);

    mod[20] = 0.5f; // a blip late in the block
    Process(vca, ins, 2, outs, 1, ProcessContext{});
    EXPECT_EQ(out[19], -0.25f);
    EXPECT_FLOAT_EQ(vca.smoothed[20], 0.5f * 0.1003797f);
    EXPECT_GT(vca.smoothState, 0.0f);

    mod[20] = 0.0f; // zeros again, but the state has not decayed: no shortcut
    Process(vca, ins, 2, outs, 1, ProcessContext{});
    EXPECT_GT(vca.smoothed[31], 0.0f);
    EXPECT_GT(out[0], 0.25f);
}
