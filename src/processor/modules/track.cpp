#include "processor/modules/track.h"

namespace Norvell::Vantor {

namespace {

// Bipolar input -0.5..0.5, centred output. False on an out-of-range sample.
bool TrackBipolar(const float* p, float x, float& y) {
    if (!(x >= -0.5f && x <= 0.5f)) return false;
    float v;
    if (x <= -0.25f)
        v = p[0] + (p[1] - p[0]) * (4.0f * x + 2.0f);
    else if (x <= 0.0f)
        v = p[1] + (p[2] - p[1]) * (4.0f * x + 1.0f);
    else if (x <= 0.25f)
        v = p[2] + (p[3] - p[2]) * (4.0f * x);
    else
        v = p[3] + (p[4] - p[3]) * (4.0f * (x - 0.25f));
    y = v - 0.5f;
    return true;
}

// Unipolar input 0..1. False on an out-of-range sample.
bool TrackUnipolar(const float* p, float x, float& y) {
    if (!(x >= 0.0f && x <= 1.0f)) return false;
    if (x <= 0.25f)
        y = p[0] + (p[1] - p[0]) * (4.0f * x);
    else if (x <= 0.5f)
        y = p[1] + (p[2] - p[1]) * (4.0f * (x - 0.25f));
    else if (x <= 0.75f)
        y = p[2] + (p[3] - p[2]) * (4.0f * (x - 0.5f));
    else
        y = p[3] + (p[4] - p[3]) * (4.0f * (x - 0.75f));
    return true;
}

} // namespace

void Init(TrackState& state, int32_t voiceIndex) {
    const auto params = state.params;
    state = TrackState{};
    state.params = params;
    state.params.refreshPending = true;
    state.voiceIndex = voiceIndex;
}

namespace {

void Derive(TrackState& s) {
    s.inputIndex = s.selectableInputs > 0
                       ? StepIndex(s.params[kTrackInputSelector],
                                   static_cast<float>(s.selectableInputs), s.selectableInputs - 1)
                       : 0;
    s.inputScale = s.inputIndex == kTrackModWheelSource ? 2.0f : 1.0f;
}

} // namespace

void RefreshParams(TrackState& s) {
    if (s.params.Refresh()) Derive(s);
}

int32_t Process(TrackState& s, Inputs in, uint64_t, Outputs out, uint64_t,
                const ProcessContext& ctx) {
    RefreshParams(s);
    if (out == nullptr || out[0] == nullptr || in == nullptr) return kProcessMissing;
    if (s.inputIndex >= 29 || s.inputIndex < 0) return kProcessUnusable;
    const float* input = in[s.inputIndex];
    if (input == nullptr) return kProcessOk; // source 0: nothing to track

    const float* points = s.params.values;
    float* output = out[0];
    if (s.bipolar != 0) {
        for (int32_t n = 0; n < ctx.frameCount; ++n)
            if (!TrackBipolar(points, input[n], output[n])) return kProcessUnusable;
        return kProcessOk;
    }
    for (int32_t n = 0; n < ctx.frameCount; ++n)
        if (!TrackUnipolar(points, input[n] * s.inputScale, output[n])) return kProcessUnusable;
    return kProcessOk;
}

} // namespace Norvell::Vantor
