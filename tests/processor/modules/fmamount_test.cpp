#include "processor/modules/fmamount.h"
#include "processor/modules/voices.h"
#include <bit>
#include <gtest/gtest.h>
using namespace Norvell::Vantor;
TEST(FmAmountTest, ScalingActivityAndRouting) {
    FmAmountState fm;
    VoiceState voices;
    float amount = 0.0f, destination = 0.0f, tri[kBlockSize], mod[32] = {}, sig[32], act[32];
    float *in[2] = {tri, mod}, *out[2] = {sig, act};
    const auto run = [&](uint32_t active) {
        voices.activeVoices = active;
        Process(fm, in, 2, out, 2, {120.0f, 44100.0f, 0, &voices});
    };
    Init(fm, 3);
    fm.params.bound[0] = &amount;
    fm.params.bound[1] = &destination;
    for (int n = 0; n < kBlockSize; ++n) tri[n] = static_cast<float>(n % 5) - 2.0f;
    run(1u << 3);
    EXPECT_EQ(sig[4], 0.0f);
    EXPECT_EQ(std::bit_cast<uint32_t>(act[4]), 0u); // amount 0: inactive
    amount = 0.5f, run(1u << 3);
    EXPECT_NEAR(sig[4], 2.0 * 0.5 * 8.0 / 21.0, 1e-6);
    for (float a : act) ASSERT_EQ(std::bit_cast<uint32_t>(a), 0x01010101u);
    // An idle voice keeps its outputs but takes a new destination; only 0 is oscillator 1.
    destination = 0.5f, sig[0] = 7.0f, run(0);
    EXPECT_EQ(sig[0], 7.0f);
    EXPECT_EQ(fm.destination, 0.5f);
}
