#include "dsp/fastmath.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>

using Norvell::dsp::FastPow2;
using Norvell::dsp::NoteFrequencies;

namespace {

// The bit-pattern formula: p = max(x, -126); z = p - trunc(p), plus 1 for
// negative x; result bits = trunc(2^23 (p + 121.274055 + 27.728024 /
// (4.8425255 - z) - 1.4901291 z)).
uint32_t FormulaBits(float x) {
    const float p = x < -126.0f ? -126.0f : x;
    float z = p - std::trunc(p);
    if (x < 0.0f) z += 1.0f;
    const float e = 8388608.0f * (p + 121.274055f + 27.728024f / (4.8425255f - z) - 1.4901291f * z);
    return static_cast<uint32_t>(static_cast<int32_t>(e));
}

TEST(FastPow2, BitPatternFormulaForNegativeZeroAndLargeInputs) {
    for (float x : {0.0f, -0.0f, -0.5f, -1.0f, -3.999f, -125.5f, -126.0f, -1000.0f, 40.5f, 127.99f})
        EXPECT_EQ(std::bit_cast<uint32_t>(FastPow2(x)), FormulaBits(x)) << x;
    for (int i = -4000; i <= 4000; ++i) {
        const float x = static_cast<float>(i) * 0.0031f;
        ASSERT_EQ(std::bit_cast<uint32_t>(FastPow2(x)), FormulaBits(x)) << x;
    }
}

TEST(FastPow2, CloseToTwoToTheXMonotonicAndSaturating) {
    float previous = 0.0f;
    for (int i = -2000; i <= 2000; ++i) {
        const float x = static_cast<float>(i) * 0.01f;
        EXPECT_NEAR(FastPow2(x) / std::exp2(x), 1.0, 1e-4) << x;
        EXPECT_GE(FastPow2(x), previous) << x;
        previous = FastPow2(x);
    }
    EXPECT_NEAR(FastPow2(120.0f) / std::exp2(120.0f), 1.0, 1e-3);
    EXPECT_EQ(FastPow2(1e9f), FastPow2(128.0f)); // saturates, no integer overflow
    EXPECT_GT(FastPow2(std::nanf("")), 0.0f);    // clamped like a large negative input
    EXPECT_LT(FastPow2(std::nanf("")), 1e-37f);
}

TEST(NoteFrequencies, EqualTemperedFrom440) {
    const float* table = NoteFrequencies();
    EXPECT_FLOAT_EQ(table[69], 440.0f);
    EXPECT_NEAR(table[0], 8.1758, 1e-4);
    EXPECT_NEAR(table[127], 12543.86, 0.01);
    for (int m = 12; m < 128; ++m) EXPECT_NEAR(table[m] / table[m - 12], 2.0, 1e-6) << m;
}

} // namespace
