#include "processor/modules/vca.h"

#include <algorithm>

namespace Norvell::Vantor {

namespace {

void Derive(VcaState& s) {
    s.gain = s.params[0];
}

} // namespace

void Init(VcaState& state) {
    state.smoothState = 0.0f;
    std::fill(std::begin(state.smoothed), std::end(state.smoothed), 0.0f);
    state.smoothedSilent = true;
}

int32_t Process(VcaState& state, Inputs in, uint64_t, Outputs out, uint64_t,
                const ProcessContext&) {
    if (in == nullptr || in[0] == nullptr || out == nullptr || out[0] == nullptr)
        return kProcessMissing;
    // A missing modulation input freezes the previous block's smoothed values.
    if (in[1] != nullptr)
        state.smoothedSilent = SmoothBlock(in[1], state.smoothState, kVcaSmoothing, state.smoothed);
    if (state.params.Refresh()) Derive(state);

    const float* x = in[0];
    float* y = out[0];
    const float gain = state.gain;
    if (state.smoothedSilent) {
        const float factor = std::min(std::max(0.0f + gain, 0.0f), 1.0f);
        for (int n = 0; n < kBlockSize; ++n) y[n] = factor * x[n];
        return kProcessOk;
    }
    for (int n = 0; n < kBlockSize; ++n)
        y[n] = std::min(std::max(state.smoothed[n] + gain, 0.0f), 1.0f) * x[n];
    return kProcessOk;
}

} // namespace Norvell::Vantor
