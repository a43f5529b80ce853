#include "processor/modules/vca.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace Norvell::Vantor;

namespace {

struct VcaRig {
    VcaRig() { vca.params.bound[0] = &gain; }
    void Run(float modulation, float x = 1.0f) {
        std::fill(in, in + kBlockSize, x);
        std::fill(mod, mod + kBlockSize, modulation);
        float* ins[2] = {in, mod};
        float* outs[1] = {out};
        Process(vca, ins, 2, outs, 1, ProcessContext{});
    }
    VcaState vca;
    float gain = 0.0f;
    float in[kBlockSize], mod[kBlockSize], out[kBlockSize];
};

TEST(VcaTest, LevelModulationSettlesWithinOnePercentAfter44Samples) {
    VcaRig r;
    r.Run(0.5f);
    for (int n = 0; n < kBlockSize; ++n)
        ASSERT_NEAR(r.out[n], 0.5 * (1.0 - std::pow(1.0 - 0.1003797, n + 1)), 1e-6) << n;
    r.Run(0.5f); // response sample 44 is sample 11 of the second block
    EXPECT_GT(r.out[11], 0.495f);
    EXPECT_LT(r.out[10], 0.495f);
}

TEST(VcaTest, SumClampsToOneAndNeverInverts) {
    VcaRig r;
    r.gain = 0.7f;
    for (int k = 0; k < 10; ++k) r.Run(0.5f);
    EXPECT_EQ(r.out[31], 1.0f);
    r.gain = 0.3f;
    for (int k = 0; k < 10; ++k) r.Run(-1.0f, -1.0f);
    EXPECT_EQ(r.out[31], 0.0f);
    for (int k = 0; k < 100; ++k) r.Run(0.0f);
    EXPECT_EQ(r.vca.smoothState, 0.0f); // no subnormal tail left behind
}

} // namespace
