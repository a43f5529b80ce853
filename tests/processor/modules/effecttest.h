#pragma once
// Drives an effect module directly, in blocks, with hand-made stereo signals.
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cmath>
#include <cstdint>
#include <vector>

namespace VantorTest {

struct Signal {
    std::vector<float> left;
    std::vector<float> right;
    size_t size() const { return left.size(); }
};

inline Signal Constant(size_t frames, float value) {
    return {std::vector<float>(frames, value), std::vector<float>(frames, value)};
}
inline Signal Impulse(size_t frames, float amplitude = 1.0f) {
    Signal s = Constant(frames, 0.0f);
    s.left[0] = s.right[0] = amplitude;
    return s;
}
// Deterministic white noise in -amplitude..amplitude.
inline Signal Noise(size_t frames, float amplitude = 0.5f, uint32_t seed = 1) {
    Signal s = Constant(frames, 0.0f);
    for (size_t i = 0; i < 2 * frames; ++i) {
        seed = seed * 1664525u + 1013904223u;
        (i % 2 ? s.right : s.left)[i / 2] =
            amplitude * (static_cast<float>(seed >> 8) / 8388608.0f - 1.0f);
    }
    return s;
}

// Parameter values a test can change between calls: every parameter of the
// record is bound to one entry.
template <size_t N> struct Knobs {
    float values[N]{};
    explicit Knobs(Norvell::Vantor::ParamRecord<N>& record) {
        for (size_t i = 0; i < N; ++i) record.bound[i] = &values[i];
    }
    float& operator[](size_t i) { return values[i]; }
};

inline Norvell::Vantor::ProcessContext Context(float rate = 44100.0f, float tempo = 120.0f,
                                               int32_t frames = 32) {
    Norvell::Vantor::ProcessContext ctx;
    ctx.sampleRate = rate;
    ctx.tempo = tempo;
    ctx.frameCount = frames;
    return ctx;
}

// Runs the input through the effect in 32-sample blocks.
template <typename State>
Signal RunEffect(State& state, const Signal& input,
                 const Norvell::Vantor::ProcessContext& ctx = Context()) {
    Signal out = Constant(input.size(), 0.0f);
    for (size_t at = 0; at + 32 <= input.size(); at += 32) {
        float* in[2] = {const_cast<float*>(&input.left[at]), const_cast<float*>(&input.right[at])};
        float* o[2] = {&out.left[at], &out.right[at]};
        Process(state, in, 2, o, 2, ctx);
    }
    return out;
}
template <typename State>
Signal RunSilence(State& state, size_t frames,
                  const Norvell::Vantor::ProcessContext& ctx = Context()) {
    return RunEffect(state, Constant(frames, 0.0f), ctx);
}

// Largest magnitude of both channels from sample `from` on.
inline float Peak(const Signal& s, size_t from = 0) {
    float peak = 0.0f;
    for (size_t i = from; i < s.size(); ++i)
        peak = std::fmax(peak, std::fmax(std::fabs(s.left[i]), std::fabs(s.right[i])));
    return peak;
}

} // namespace VantorTest
