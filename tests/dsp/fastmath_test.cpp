#include "dsp/fastmath.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>

using Norvell::dsp::FastPow2;

namespace {

// p = max(x, -126); z = p - trunc(p), plus 1 for negative x; result bits =
// trunc(2^23 (p + 121.274055 + 27.728024 / (4.8425255 - z) - 1.4901291 z)).
uint32_t FormulaBits(float x) {
    const float p = x < -126.0f ? -126.0f : x;
    const float z = p - std::trunc(p) + (x < 0.0f ? 1.0f : 0.0f);
    const float e = 8388608.0f * (p + 121.274055f + 27.728024f / (4.8425255f - z) - 1.4901291f * z);
    return static_cast<uint32_t>(static_cast<int32_t>(e));
}

TEST(FastPow2, BitFormulaCloseToTwoToTheXAndSaturating) {
    for (float x : {0.0f, -0.0f, -0.5f, -1.0f, -3.999f, -125.5f, -126.0f, -1000.0f, 40.5f, 127.99f})
        EXPECT_EQ(std::bit_cast<uint32_t>(FastPow2(x)), FormulaBits(x)) << x;
    for (float x = -20.0f; x <= 20.0f; x += 0.005f) { // and near 2^x: the formula is right
        ASSERT_EQ(std::bit_cast<uint32_t>(FastPow2(x)), FormulaBits(x)) << x;
        ASSERT_NEAR(FastPow2(x) / std::exp2(x), 1.0, 1e-4) << x;
    }
    EXPECT_EQ(FastPow2(1e9f), FastPow2(128.0f)); // saturates, no integer overflow
    const float nan = FastPow2(std::nanf(""));   // clamped like a large negative input
    EXPECT_GT(nan, 0.0f);
    EXPECT_LT(nan, 1e-37f);
}

} // namespace
