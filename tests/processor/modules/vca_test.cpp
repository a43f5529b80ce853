#include "processor/modules/vca.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace Norvell::Vantor;

namespace {

constexpr double kCoefficient = 0.1003797;

class VcaTest : public ::testing::Test {
protected:
    void SetUp() override {
        Init(vca);
        vca.params.bound[0] = &gain;
        for (float& x : input) x = 1.0f;
    }
    void Modulation(float value) {
        for (float& x : mod) x = value;
    }
    void Run(bool withModulation = true) {
        float* in[2] = {input, withModulation ? mod : nullptr};
        float* out[1] = {output};
        Process(vca, in, 2, out, 1, ctx);
    }

    VcaState vca;
    float gain = 0.0f;
    float input[kBlockSize];
    float mod[kBlockSize] = {};
    float output[kBlockSize] = {};
    ProcessContext ctx;
};

TEST_F(VcaTest, LevelModulationSettlesWithinOnePercentAfter44Samples) {
    Modulation(0.5f);
    Run();
    for (int n = 0; n < kBlockSize; ++n)
        ASSERT_NEAR(output[n], 0.5 * (1.0 - std::pow(1.0 - kCoefficient, n + 1)), 1e-6) << n;
    Run();
    // Sample 44 of the response is sample 11 of the second block.
    EXPECT_GT(output[11], 0.495f);
    EXPECT_LT(output[10], 0.495f);
    for (int k = 0; k < 4; ++k) Run();
    EXPECT_NEAR(output[31], 0.5f, 1e-6);
}

TEST_F(VcaTest, GainPlusModulationClampsToOneAndNeverInverts) {
    gain = 0.7f;
    Modulation(0.5f);
    for (int k = 0; k < 10; ++k) Run();
    for (float y : output) EXPECT_EQ(y, 1.0f);

    gain = 0.3f;
    Modulation(-1.0f);
    for (int n = 0; n < kBlockSize; ++n) input[n] = n % 2 ? 1.0f : -1.0f;
    for (int k = 0; k < 10; ++k) Run();
    for (float y : output) EXPECT_EQ(y, 0.0f);
}

TEST_F(VcaTest, GainAloneScalesAndFollowsChanges) {
    gain = 0.25f;
    Run();
    for (float y : output) EXPECT_EQ(y, 0.25f);
    EXPECT_EQ(vca.gain, 0.25f);
    gain = 0.0f;
    Run();
    for (float y : output) EXPECT_EQ(y, 0.0f);
}

TEST_F(VcaTest, MissingModulationRepeatsThePreviousBlock) {
    Modulation(1.0f);
    Run();
    float first[kBlockSize];
    std::copy(output, output + kBlockSize, first);
    Modulation(0.0f);
    Run(false);
    for (int n = 0; n < kBlockSize; ++n) EXPECT_EQ(output[n], first[n]);
}

TEST_F(VcaTest, AlwaysThirtyTwoSamples) {
    gain = 1.0f;
    ctx.frameCount = 8;
    Run();
    EXPECT_EQ(output[31], 1.0f);
}

TEST_F(VcaTest, DecayedSmootherLeavesNoSubnormalState) {
    Modulation(1.0f);
    Run();
    Modulation(0.0f);
    for (int k = 0; k < 100; ++k) Run();
    EXPECT_EQ(vca.smoothState, 0.0f);
}

} // namespace
