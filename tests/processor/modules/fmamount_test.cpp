#include "processor/modules/fmamount.h"
#include "processor/modules/voices.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>

using namespace Norvell::Vantor;

namespace {

constexpr double kCoefficient = 0.0067972755;
constexpr double kScale = 8.0 / 21.0;

class FmAmountTest : public ::testing::Test {
protected:
    void SetUp() override {
        Init(fm, 3);
        fm.params.bound[0] = &amount;
        fm.params.bound[1] = &destination;
        voices.activeVoices = 1u << 3;
        ctx.voiceState = &voices;
        for (int n = 0; n < kBlockSize; ++n) triangle[n] = std::sin(0.3f * static_cast<float>(n));
        Fill(7.0f);
    }
    void Fill(float value) {
        for (int n = 0; n < kBlockSize; ++n) signal[n] = activity[n] = value;
    }
    int32_t Run() {
        float* in[2] = {triangle, mod};
        float* out[2] = {signal, activity};
        return Process(fm, in, 2, out, 2, ctx);
    }

    FmAmountState fm;
    float amount = 0.0f;
    float destination = 0.0f;
    VoiceState voices;
    ProcessContext ctx;
    float triangle[kBlockSize];
    float mod[kBlockSize] = {};
    float signal[kBlockSize];
    float activity[kBlockSize];
};

TEST_F(FmAmountTest, ZeroAmountGivesNoSignalAndNoActivity) {
    ASSERT_EQ(Run(), kProcessOk);
    for (int n = 0; n < kBlockSize; ++n) {
        EXPECT_EQ(signal[n], 0.0f);
        EXPECT_EQ(std::bit_cast<uint32_t>(activity[n]), 0u);
    }
}

TEST_F(FmAmountTest, AmountScalesTheTriangleAndSetsTheActivityPattern) {
    amount = 0.5f;
    Run();
    for (int n = 0; n < kBlockSize; ++n) {
        EXPECT_NEAR(signal[n], triangle[n] * 0.5 * kScale, 1e-6);
        EXPECT_EQ(std::bit_cast<uint32_t>(activity[n]), kFmActiveBits);
    }
    amount = 4.0f; // clamped to 1
    Run();
    EXPECT_NEAR(signal[5], triangle[5] * kScale, 1e-6);
}

TEST_F(FmAmountTest, AmountModulationIsSmoothed) {
    for (float& x : mod) x = 1.0f;
    Run();
    for (int n = 0; n < kBlockSize; ++n) {
        const double s = 1.0 - std::pow(1.0 - kCoefficient, n + 1);
        EXPECT_NEAR(signal[n], triangle[n] * s * kScale, 1e-6) << n;
    }
}

TEST_F(FmAmountTest, ActivityTestsTheUnclampedSum) {
    amount = -0.5f; // clamps to no FM, but the sum is not zero
    Run();
    EXPECT_EQ(signal[3], 0.0f);
    EXPECT_EQ(std::bit_cast<uint32_t>(activity[3]), kFmActiveBits);
}

TEST_F(FmAmountTest, IdleVoiceKeepsOutputsButTakesTheDestination) {
    voices.activeVoices = 0;
    amount = 0.5f;
    destination = 0.5f;
    ASSERT_EQ(Run(), kProcessOk);
    EXPECT_EQ(signal[0], 7.0f);
    EXPECT_EQ(activity[0], 7.0f);
    // Any destination but exactly 0 sends FM to the filter.
    EXPECT_EQ(fm.destination, 0.5f);
    EXPECT_EQ(fm.amount, 0.5f);

    ctx.voiceState = nullptr;
    destination = 0.0f;
    EXPECT_EQ(Run(), kProcessMissing);
    EXPECT_EQ(fm.destination, 0.0f);
}

} // namespace
