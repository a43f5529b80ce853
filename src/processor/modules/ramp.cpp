#include "processor/modules/ramp.h"

#include "processor/modules/voices.h"

#include <algorithm>
#include <cmath>

namespace Norvell::Vantor {

const dsp::BreakpointTable<64>& RampTimeTable() {
    static const dsp::BreakpointTable<64> table = dsp::BreakpointTable<64>::FromBreakpoints({
        {0, 0.006f},
        {10, 0.0331066f},
        {20, 0.1820862f},
        {30, 0.4217687f},
        {40, 0.7922902f},
        {45, 1.0447845f},
        {50, 2.002721f},
        {55, 4.018141f},
        {60, 11.791383f},
        {63, 36.410206f},
    });
    return table;
}

namespace {

void Derive(RampState& s) {
    const ParamRecord<kRampParamCount>& p = s.params;
    s.rampTime = RampTimeTable().Lookup(p[kRampRate]);
    s.singleTrigger = std::trunc(p[kRampRetrigMode]) == 0.0f ? 1 : 0;
    s.lfoTrigOn = p[kRampLfoTrigOn] != 0.0f ? 1 : 0;
    s.triggerIndex = static_cast<uint32_t>(StepIndex(p[kRampLfoTrigId], 6.0f, 5));
    s.gatedOn = p[kRampGated] != 0.0f ? 1 : 0;
}

} // namespace

void Init(RampState& state, int32_t voiceIndex) {
    state.voiceIndex = voiceIndex;
    RefreshParams(state);
}

void RefreshParams(RampState& s) {
    if (s.params.Refresh()) Derive(s);
}

int32_t Process(RampState& s, Inputs in, uint64_t, Outputs out, uint64_t,
                const ProcessContext& ctx) {
    if (ctx.voiceState == nullptr) return kProcessMissing;
    const VoiceState& voices = *ctx.voiceState;
    if (!HasVoice(voices.activeVoices, s.voiceIndex)) {
        s.level = 0.0;
        return kProcessOk;
    }
    // A note-on restarts the ramp, except a legato one in single-trigger mode.
    if (HasVoice(voices.triggerVoices, s.voiceIndex) && !(s.gateState != 0 && s.singleTrigger != 0))
        s.level = 0.0;
    s.gateState = HasVoice(voices.gateVoices, s.voiceIndex) ? 1 : 0;
    RefreshParams(s);

    if (out == nullptr || out[0] == nullptr || in == nullptr || in[s.triggerIndex] == nullptr)
        return kProcessMissing;
    if (ctx.frameCount < 1) return kProcessOk;

    float* output = out[0];
    const float* trigger = in[s.triggerIndex];
    const double step = 1.0f / (s.rampTime * ctx.sampleRate);
    for (int32_t n = 0; n < ctx.frameCount; ++n) {
        if (s.lfoTrigOn != 0) {
            const float x = trigger[n];
            if (x > 0.0f && s.prevTriggerSample <= 0.0f && (s.gatedOn == 0 || s.gateState != 0))
                s.level = 0.0;
            s.prevTriggerSample = x;
        }
        s.level = std::clamp(s.level + step, 0.0, 1.0);
        output[n] = static_cast<float>(s.level);
    }
    return kProcessOk;
}

} // namespace Norvell::Vantor
