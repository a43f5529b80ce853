#include "processor/modules/flanger.h"

#include <cmath>

namespace Norvell::Vantor {

namespace {

constexpr int32_t kMask = FlangerState::kMask;

void Derive(FlangerState& s, float sampleRate) {
    const auto& p = s.params;
    const float rateHz = std::pow(10.0f, 3.0f * p[kFlangerRate] - 2.0f);
    s.increment = 2.0f * rateHz / sampleRate;
    const float total = p[kFlangerDepth] * p[kFlangerDepth] * 2000.0f;
    s.sweep = total * p[kFlangerDelay];
    s.minimum = total - s.sweep;
    s.fb = 1.9f * p[kFlangerFeedback] - 0.95f;
    s.dry = 1.0f - p[kFlangerDryWet];
    if (p[kFlangerRate] < 0.01f) {
        // Frozen sweep at its longest delay.
        s.increment = 0.0f;
        s.phase = 0.0f;
    }
}

inline float ReadLine(const float* buf, int32_t r, float t) {
    const float a = buf[r];
    return a + (buf[(r + 1) & kMask] - a) * t;
}

} // namespace

void Init(FlangerState& state) {
    state.bufL.Allocate(FlangerState::kLineLength);
    state.bufR.Allocate(FlangerState::kLineLength);
    Reset(state);
    state.ready = true;
}

void Reset(FlangerState& state) {
    state.bufL.Clear();
    state.bufR.Clear();
    state.phase = 0.0f;
    state.lastL = state.lastR = 0.0f;
}

int32_t Process(FlangerState& state, Inputs in, uint64_t, Outputs out, uint64_t,
                const ProcessContext& ctx) {
    FlangerState& s = state;
    const int32_t status = s.Begin(s, in, out, ctx, Derive);
    if (status != kProcessOk) return status;

    const float wet = s.params[kFlangerDryWet];
    const float* xl = in[0];
    const float* xr = in[1];
    float* outL = out[0];
    float* outR = out[1];
    for (int32_t n = 0; n < ctx.frameCount; ++n) {
        s.phase += s.increment;
        if (s.phase > 1.0f) s.phase -= 2.0f;
        s.bufL.Push(FlushTiny(s.fb * s.lastL + xl[n]));
        s.bufR.Push(FlushTiny(s.fb * s.lastR + xr[n]));
        const float d = (1.0f - s.phase * s.phase) * s.sweep + s.minimum;
        const int32_t id = StepIndex(d, 1.0f, kMask);
        const int32_t r = (id + s.bufL.Position()) & kMask;
        const float t = d - static_cast<float>(id);
        s.lastL = ReadLine(s.bufL.Data(), r, t);
        s.lastR = ReadLine(s.bufR.Data(), r, t);
        outL[n] = xl[n] * s.dry - wet * s.lastL;
        outR[n] = xr[n] * s.dry - wet * s.lastR;
    }
    if (std::fabs(s.lastL) <= 1e-10f) {
        s.lastL = 0.0f;
        s.lastR = 0.0f;
    }
    return kProcessOk;
}

} // namespace Norvell::Vantor
