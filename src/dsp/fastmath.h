#pragma once
// Fast base-2 exponential and the note frequency table shared by the
// oscillator and the filter.
#include <bit>
#include <cstdint>

namespace Norvell::dsp {

// 2^x from a rational correction of the exponent bits. Inputs below -126 give
// the -126 result; NaN gives about 2^-126 and inputs above 128 give infinity,
// so the integer conversion never overflows.
inline float FastPow2(float x) {
    float p = x;
    if (!(p >= -126.0f)) p = -126.0f;
    if (p > 128.0f) p = 128.0f;
    float z = p - static_cast<float>(static_cast<int32_t>(p));
    if (x < 0.0f) z += 1.0f;
    const float e = 8388608.0f * (p + 121.274055f + 27.728024f / (4.8425255f - z) - 1.4901291f * z);
    return std::bit_cast<float>(static_cast<int32_t>(e));
}

// Clamp to lo..hi; NaN gives lo, so a NaN parameter never reaches a table or a state.
inline float Clamp(float x, float lo, float hi) {
    if (!(x >= lo)) return lo;
    return x > hi ? hi : x;
}
inline float Clamp01(float x) {
    return Clamp(x, 0.0f, 1.0f);
}

// Rational soft saturation v (v^2 + 27) / (9 v^2 + 27): close to tanh, 1 at v = 3.
inline float SoftSaturate(float v) {
    const float v2 = v * v;
    return v * (v2 + 27.0f) / (9.0f * v2 + 27.0f);
}

// 128 entries, entry m = 440 * 2^((m - 69) / 12).
const float* NoteFrequencies();

} // namespace Norvell::dsp
