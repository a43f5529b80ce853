#pragma once
// Small numeric helpers shared by every module family.
#include <cmath>

namespace Norvell::dsp {

inline constexpr float kTwoPi = 6.2831855f;

// Exponent step per semitone of the base-2 pitch law (1/12 with the engine's rounding).
inline constexpr float kSemitone = 0.083213426f;

// Values far below audibility become 0, so recirculating memories never hold
// subnormal numbers (slow on most processors) and their products with gains
// below 1 cannot become subnormal either (about -600 dB).
inline float FlushTiny(float x) {
    return std::fabs(x) < 1e-30f ? 0.0f : x;
}

// Sample i of an optional input; an unconnected input reads as 0.
inline float InputOr0(const float* input, int i) {
    return input != nullptr ? input[i] : 0.0f;
}

} // namespace Norvell::dsp
