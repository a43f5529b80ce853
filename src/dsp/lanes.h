#pragma once
// Four float lanes on SSE2, the x86-64 baseline. Every operation is the plain
// IEEE operation of one lane (no fused multiply-add, true division), so a lane
// computes bit for bit what the same scalar expression computes. Conditions
// are masks and choices are selects, so no lane branches.
#include <emmintrin.h>

namespace Norvell::dsp {

struct Lanes {
    __m128 v;
};

inline Lanes Splat(float x) {
    return {_mm_set1_ps(x)};
}
inline Lanes Load(const float* p) {
    return {_mm_loadu_ps(p)};
}
inline void Store(float* p, Lanes a) {
    _mm_storeu_ps(p, a.v);
}

inline Lanes operator+(Lanes a, Lanes b) {
    return {_mm_add_ps(a.v, b.v)};
}
inline Lanes operator-(Lanes a, Lanes b) {
    return {_mm_sub_ps(a.v, b.v)};
}
inline Lanes operator*(Lanes a, Lanes b) {
    return {_mm_mul_ps(a.v, b.v)};
}
inline Lanes operator/(Lanes a, Lanes b) {
    return {_mm_div_ps(a.v, b.v)};
}

// fmax(a, b) and fmin(a, b) for a bound b that is never NaN: a NaN in a gives b.
inline Lanes MaxOr(Lanes a, Lanes bound) {
    return {_mm_max_ps(a.v, bound.v)};
}
inline Lanes MinOr(Lanes a, Lanes bound) {
    return {_mm_min_ps(a.v, bound.v)};
}

// All bits set in the lanes where the condition holds.
inline Lanes MaskWhere(bool lane0, bool lane1, bool lane2, bool lane3) {
    const auto bits = [](bool on) { return on ? -1 : 0; };
    return {_mm_castsi128_ps(_mm_set_epi32(bits(lane3), bits(lane2), bits(lane1), bits(lane0)))};
}
inline Lanes Equal(Lanes a, Lanes b) {
    return {_mm_cmpeq_ps(a.v, b.v)};
}
inline Lanes GreaterEqual(Lanes a, Lanes b) {
    return {_mm_cmpge_ps(a.v, b.v)};
}
inline Lanes Select(Lanes mask, Lanes ifSet, Lanes ifClear) {
    return {_mm_or_ps(_mm_and_ps(mask.v, ifSet.v), _mm_andnot_ps(mask.v, ifClear.v))};
}

// True when every sample of a block of `count` (a multiple of four) equals
// the first, as == compares them (a NaN equals nothing).
inline bool AllEqualFirst(const float* x, int count) {
    const __m128 first = _mm_set1_ps(x[0]);
    __m128 same = _mm_cmpeq_ps(_mm_loadu_ps(x), first);
    for (int i = 4; i < count; i += 4)
        same = _mm_and_ps(same, _mm_cmpeq_ps(_mm_loadu_ps(x + i), first));
    return _mm_movemask_ps(same) == 0xF;
}

// |x| < FLT_MIN gives +0 (NaN stays NaN), as the scalar subnormal flush does.
inline Lanes FlushSubnormal(Lanes x) {
    const __m128 magnitude = _mm_andnot_ps(_mm_set1_ps(-0.0f), x.v);
    const __m128 tiny = _mm_cmplt_ps(magnitude, _mm_set1_ps(1.17549435e-38f));
    return {_mm_andnot_ps(tiny, x.v)};
}

// Four rows of four become four columns of four.
inline void Transpose(Lanes& r0, Lanes& r1, Lanes& r2, Lanes& r3) {
    _MM_TRANSPOSE4_PS(r0.v, r1.v, r2.v, r3.v);
}

} // namespace Norvell::dsp
