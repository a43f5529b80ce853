#include "module_rig.h"
#pragma once
// Drives an effect module directly, in 32-sample blocks, with hand-made stereo signals.
#include "processor/processcontext.h"
#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <vector>

using namespace Norvell::Vantor;
using VantorTest::BindAll;

struct Signal {
    std::vector<float> left, right;
    bool operator==(const Signal&) const = default;
};
inline Signal Constant(size_t frames, float value = 0.0f) {
    return {std::vector<float>(frames, value), std::vector<float>(frames, value)};
}
inline Signal Impulse(size_t frames, float amplitude = 1.0f) {
    Signal s = Constant(frames);
    s.left[0] = s.right[0] = amplitude;
    return s;
}
inline Signal Noise(size_t frames, float amplitude = 0.5f) { // white, the same on every call
    std::minstd_rand rng(1);
    std::uniform_real_distribution<float> uniform(-amplitude, amplitude);
    Signal s = Constant(frames);
    for (size_t i = 0; i < frames; ++i) {
        s.left[i] = uniform(rng);
        s.right[i] = uniform(rng);
    }
    return s;
}
inline float Peak(const Signal& s) { // largest magnitude, infinite if any sample is not a number
    float peak = 0.0f;
    for (const std::vector<float>* x : {&s.left, &s.right})
        for (float v : *x) peak = std::isnan(v) ? INFINITY : std::fmax(peak, std::fabs(v));
    return peak;
}
inline ProcessContext Context(float rate = 44100.0f, float tempo = 120.0f) {
    return {.tempo = tempo, .sampleRate = rate, .frameCount = 32};
}

// One initialised effect whose parameters, given in binding order (the rest 0,
// the last, dry/wet, apart), are bound to `knob` so a test can change them.
template <typename State> struct Fx {
    static constexpr size_t N = sizeof(State::params.values) / sizeof(float);
    std::unique_ptr<State> s = std::make_unique<State>();
    std::unique_ptr<float[]> knob = std::make_unique<float[]>(N); // on the heap: Fx may move
    explicit Fx(const std::vector<float>& values, float dryWet = 1.0f) {
        std::ranges::copy(values, knob.get());
        knob[N - 1] = dryWet;
        std::copy_n(knob.get(), N, s->params.values);
        BindAll(s->params, knob.get());
        Init(*s);
    }
    Signal Run(Signal x, const ProcessContext& ctx = Context()) {
        Signal y = Constant(x.left.size());
        for (size_t at = 0; at + 32 <= x.left.size(); at += 32) {
            float *in[2] = {&x.left[at], &x.right[at]}, *out[2] = {&y.left[at], &y.right[at]};
            Process(*s, in, 2, out, 2, ctx);
        }
        return y;
    }
};
