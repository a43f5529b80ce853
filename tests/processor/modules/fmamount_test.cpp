#include "processor/modules/fmamount.h"
#include "processor/modules/voices.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>

using namespace Norvell::Vantor;

namespace {

TEST(FmAmountTest, ScalingActivityAndRouting) {
    FmAmountState fm;
    Init(fm, 3);
    float amount = 0.0f, destination = 0.0f;
    fm.params.bound[0] = &amount;
    fm.params.bound[1] = &destination;
    VoiceState voices;
    voices.activeVoices = 1u << 3;
    ProcessContext ctx;
    ctx.voiceState = &voices;
    float tri[kBlockSize], mod[kBlockSize] = {}, sig[kBlockSize], act[kBlockSize];
    for (int n = 0; n < kBlockSize; ++n) tri[n] = static_cast<float>(n % 5) - 2.0f;
    float* in[2] = {tri, mod};
    float* out[2] = {sig, act};

    Process(fm, in, 2, out, 2, ctx);
    EXPECT_EQ(sig[4], 0.0f);
    EXPECT_EQ(std::bit_cast<uint32_t>(act[4]), 0u);

    amount = 0.5f;
    Process(fm, in, 2, out, 2, ctx);
    EXPECT_NEAR(sig[4], 2.0 * 0.5 * 8.0 / 21.0, 1e-6);
    for (float a : act) ASSERT_EQ(std::bit_cast<uint32_t>(a), 0x01010101u);

    // An idle voice keeps its outputs but still takes a new destination,
    // which the render reads: only exactly 0 selects oscillator 1.
    voices.activeVoices = 0;
    destination = 0.5f;
    sig[0] = 7.0f;
    Process(fm, in, 2, out, 2, ctx);
    EXPECT_EQ(sig[0], 7.0f);
    EXPECT_EQ(fm.destination, 0.5f);

    voices.activeVoices = 1u << 3;
    amount = 0.0f;
    std::fill(mod, mod + kBlockSize, 1.0f); // smoothed amount modulation
    Process(fm, in, 2, out, 2, ctx);
    EXPECT_NEAR(sig[31], tri[31] * (1.0 - std::pow(1.0 - 0.0067972755, 32)) * 8.0 / 21.0, 1e-6);
}

} // namespace
