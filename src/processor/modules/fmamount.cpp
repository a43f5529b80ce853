#include "processor/modules/fmamount.h"

#include "processor/modules/vca.h"
#include "processor/modules/voices.h"

#include <algorithm>
#include <cstring>

namespace Norvell::Vantor {

namespace {

void Derive(FmAmountState& s) {
    s.destination = s.params[kFmDestination];
}

} // namespace

void Init(FmAmountState& state, int32_t voiceIndex) {
    const auto params = state.params;
    state = FmAmountState{};
    state.params = params;
    state.params.refreshPending = true;
    state.voiceIndex = voiceIndex;
}

int32_t Process(FmAmountState& state, Inputs in, uint64_t, Outputs out, uint64_t,
                const ProcessContext& ctx) {
    if (state.params.Refresh()) Derive(state);
    if (ctx.voiceState == nullptr) return kProcessMissing;
    const int32_t v = state.voiceIndex;
    if (v < 0 || v >= kVoiceCount || !HasVoice(ctx.voiceState->activeVoices, v)) return kProcessOk;
    if (in == nullptr || in[0] == nullptr || out == nullptr || out[0] == nullptr ||
        out[1] == nullptr)
        return kProcessMissing;

    // A missing modulation input freezes the previous block's smoothed values.
    if (in[1] != nullptr) SmoothBlock(in[1], state.smoothState, kFmSmoothing, state.smoothed);

    const float* x = in[0];
    float* fm = out[0];
    const float amount = state.params[kFmAmount];
    float lanes[4] = {0.0f, 0.0f, 0.0f, 0.0f};
    for (int n = 0; n < kBlockSize; n += 4) {
        for (int k = 0; k < 4; ++k) {
            const float s = state.smoothed[n + k] + amount;
            fm[n + k] = x[n + k] * std::min(std::max(s, 0.0f), 1.0f) * kFmScale;
            lanes[k] += s; // the unclamped sum decides the activity flag
        }
    }
    std::copy(lanes, lanes + 4, state.laneSums);

    // Consumers only test the activity samples for non-zero.
    if (lanes[0] + lanes[1] + lanes[2] + lanes[3] == 0.0f)
        std::fill(out[1], out[1] + kBlockSize, 0.0f);
    else
        std::memset(out[1], 0x01, sizeof(float) * kBlockSize);
    return kProcessOk;
}

} // namespace Norvell::Vantor
