#pragma once
// Drives an effect module directly, in blocks, with hand-made stereo signals.
#include "processor/processcontext.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace VantorTest {

struct Signal {
    std::vector<float> left;
    std::vector<float> right;
    size_t size() const { return left.size(); }
};

inline Signal Silence(size_t frames) {
    return {std::vector<float>(frames, 0.0f), std::vector<float>(frames, 0.0f)};
}

inline Signal Impulse(size_t frames, float amplitude = 1.0f, size_t at = 0) {
    Signal s = Silence(frames);
    s.left[at] = amplitude;
    s.right[at] = amplitude;
    return s;
}

inline Signal Constant(size_t frames, float left, float right) {
    return {std::vector<float>(frames, left), std::vector<float>(frames, right)};
}

// Deterministic white noise in -amplitude..amplitude.
inline Signal Noise(size_t frames, float amplitude = 0.5f, uint32_t seed = 1) {
    Signal s = Silence(frames);
    for (size_t i = 0; i < frames; ++i) {
        seed = seed * 1664525u + 1013904223u;
        s.left[i] = amplitude * (static_cast<float>(seed >> 8) / 8388608.0f - 1.0f);
        seed = seed * 1664525u + 1013904223u;
        s.right[i] = amplitude * (static_cast<float>(seed >> 8) / 8388608.0f - 1.0f);
    }
    return s;
}

inline Norvell::Vantor::ProcessContext Context(float sampleRate = 44100.0f, float tempo = 120.0f,
                                               int32_t frames = 32) {
    Norvell::Vantor::ProcessContext ctx;
    ctx.sampleRate = sampleRate;
    ctx.tempo = tempo;
    ctx.frameCount = frames;
    return ctx;
}

// Runs the input through the effect in blocks of ctx.frameCount samples
// (the input length must be a multiple of it).
template <typename State>
Signal Run(State& state, const Signal& input,
           const Norvell::Vantor::ProcessContext& ctx = Context()) {
    Signal out = Silence(input.size());
    const size_t block = static_cast<size_t>(ctx.frameCount);
    for (size_t at = 0; at + block <= input.size(); at += block) {
        float* in[2] = {const_cast<float*>(input.left.data() + at),
                        const_cast<float*>(input.right.data() + at)};
        float* o[2] = {out.left.data() + at, out.right.data() + at};
        Process(state, in, 2, o, 2, ctx);
    }
    return out;
}

template <typename State>
Signal RunSilence(State& state, size_t frames,
                  const Norvell::Vantor::ProcessContext& ctx = Context()) {
    return Run(state, Silence(frames), ctx);
}

inline bool IsSubnormal(float x) {
    return std::fpclassify(x) == FP_SUBNORMAL;
}

template <typename Range> size_t CountSubnormals(const Range& values) {
    size_t count = 0;
    for (float v : values) count += IsSubnormal(v) ? 1 : 0;
    return count;
}

// Largest magnitude of left and right over [from, to).
inline float Peak(const Signal& s, size_t from = 0, size_t to = SIZE_MAX) {
    float peak = 0.0f;
    for (size_t i = from; i < s.size() && i < to; ++i)
        peak = std::fmax(peak, std::fmax(std::fabs(s.left[i]), std::fabs(s.right[i])));
    return peak;
}

// Index of the largest magnitude of one channel.
inline size_t PeakIndex(const std::vector<float>& x, size_t from = 0) {
    size_t best = from;
    for (size_t i = from; i < x.size(); ++i)
        if (std::fabs(x[i]) > std::fabs(x[best])) best = i;
    return best;
}

} // namespace VantorTest
