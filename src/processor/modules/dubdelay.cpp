#include "processor/modules/dubdelay.h"

#include <algorithm>
#include <cmath>

namespace Norvell::Vantor {

namespace {

constexpr int32_t kBufMax = DubDelayState::kBufMax;
// The delay modulation moves once every kModulationInterval samples, so its
// phase advances 2 pi x 100 times the rate per update.
constexpr int kModulationInterval = 100;
constexpr float kPhasePerUpdate = 628.31854f;

void Derive(DubDelayState& s, float sampleRate) {
    const auto& p = s.params;
    s.delaySamples = sampleRate * (0.988f * p[kDubDelayTime] + 0.012f);
    s.depthSamples = p[kDubDelayLfoDepth] * 0.049f * s.delaySamples;
    s.lfoIncrement = (9.5f * p[kDubDelayLfoRate] + 0.5f) * kPhasePerUpdate / sampleRate;
    const float feedback = p[kDubDelayFeedback];
    s.fbk = std::fabs(feedback);
    s.release = feedback > 0.5f ? 0.9997f : 0.8f;
    const float x = 2.0f * p[kDubDelayFbTone] - 1.0f;
    float f;
    if (x >= 0.0f) {
        s.lowMix = 1.0f;
        s.highMix = -0.5f * x;
        f = std::pow(10.0f, 1.125f * x + 2.2f);
    } else {
        s.lowMix = 1.0f + x;
        s.highMix = -x;
        f = std::pow(10.0f, 2.25f * x + 4.45f);
    }
    s.toneCoef = std::exp(-kTwoPi * f / sampleRate);
    s.dry = 1.0f - p[kDubDelayDryWet];
}

// Delayed sample at pos behind write index w, interpolated linearly.
inline float ReadLine(const float* buf, float pos, int32_t w) {
    const int32_t ip = StepIndex(pos, 1.0f, kBufMax);
    int32_t r = ip + w;
    if (r > kBufMax) r -= kBufMax + 1;
    const float a = buf[r];
    const float b = buf[r + 1 > kBufMax ? 0 : r + 1];
    return a + (b - a) * (pos - static_cast<float>(ip));
}

} // namespace

void Init(DubDelayState& state) {
    for (DubDelayChannel& c : state.ch) c.buf.Allocate(kBufMax + 1);
    Reset(state);
    state.ready = true;
}

void Reset(DubDelayState& state) {
    for (DubDelayChannel& c : state.ch) {
        c.buf.Clear();
        c.pos = c.tgt = c.step = c.lp = c.env = 0.0f;
    }
    state.lfoPhase = 0.0f;
}

int32_t Process(DubDelayState& state, Inputs in, uint64_t, Outputs out, uint64_t,
                const ProcessContext& ctx) {
    DubDelayState& s = state;
    // Only the mix is a 0..1 control: the feedback may be negative.
    const int32_t status = s.Begin(s, in, out, ctx, Derive, kDubDelayDryWet);
    if (status != kProcessOk) return status;

    const float wet = s.params[kDubDelayDryWet];
    const float* x[2] = {in[0], in[1]};
    float* y[2] = {out[0], out[1]};
    int counter = 0; // the first update comes with the call's first sample
    for (int32_t n = 0; n < ctx.frameCount; ++n) {
        if (counter == 0) {
            const float sine = std::sin(s.lfoPhase);
            s.lfoPhase += s.lfoIncrement;
            if (s.lfoPhase > kTwoPi) s.lfoPhase -= kTwoPi;
            const float goal = s.delaySamples - s.depthSamples - sine * s.depthSamples;
            for (DubDelayChannel& c : s.ch) {
                c.tgt += (goal - c.tgt) * 0.01f;
                c.step = (c.tgt - c.pos) * 0.01f;
            }
            counter = kModulationInterval;
        }
        --counter;
        for (int k = 0; k < 2; ++k) {
            DubDelayChannel& c = s.ch[k];
            c.buf.Retreat();
            c.pos += c.step;
            const float d = ReadLine(c.buf.Data(), c.pos, c.buf.Position());
            const float in0 = x[k][n];
            const float fed = d * s.fbk + in0;
            c.lp = fed + (c.lp - fed) * s.toneCoef;
            float z = fed * s.lowMix + c.lp * s.highMix;
            c.env = std::max(std::fabs(z), c.env * s.release);
            if (c.env > 1.0f) z /= c.env;
            c.buf.Store(FlushTiny(z));
            y[k][n] = in0 * s.dry + d * wet;
        }
    }
    for (DubDelayChannel& c : s.ch) {
        if (std::fabs(c.lp) < 1e-10f) {
            c.lp = 0.0f;
            c.env = 0.0f;
        }
    }
    return kProcessOk;
}

} // namespace Norvell::Vantor
