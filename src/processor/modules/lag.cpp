#include "processor/modules/lag.h"

#include "dsp/dsputil.h"

#include "processor/modules/voices.h"

#include <algorithm>
#include <cmath>

namespace Norvell::Vantor {

const dsp::BreakpointTable<64>& LagExponentialTable() {
    static const dsp::BreakpointTable<64> table = dsp::BreakpointTable<64>::FromBreakpoints({
        {0, 1.3e-06f},
        {10, 0.0060833f},
        {20, 0.0585f},
        {30, 0.14425f},
        {40, 0.239f},
        {50, 0.50725f},
        {60, 3.9965832f},
        {63, 4.508333f},
    });
    return table;
}

const dsp::BreakpointTable<64>& LagLinearTable() {
    static const dsp::BreakpointTable<64> table = dsp::BreakpointTable<64>::FromBreakpoints({
        {0, 6e-05f},
        {10, 7.5e-05f},
        {20, 0.00075f},
        {30, 0.002f},
        {40, 0.0038333f},
        {50, 0.0096667f},
        {52, 0.0110833f},
        {54, 0.428f},
        {63, 2.13825f},
    });
    return table;
}

const dsp::BreakpointTable<64>& LagEqualTimeTable() {
    static const dsp::BreakpointTable<64> table = dsp::BreakpointTable<64>::FromBreakpoints({
        {0, 6e-05f},
        {10, 0.007f},
        {20, 0.125f},
        {30, 0.296f},
        {40, 0.534f},
        {50, 1.155f},
        {60, 39.736f},
        {63, 39.714f},
    });
    return table;
}

namespace {

// One key step of the key source.
constexpr float kKeyStep = 1.0f / 127.0f;

void Exponential(LagState& s, const float* x, const float* mod, float* out) {
    const dsp::BreakpointTable<64>& table = LagExponentialTable();
    for (int n = 0; n < kBlockSize; ++n) {
        const float time = table.Lookup(dsp::InputOr0(mod, n) + s.params[kLagRate]);
        const float k = s.invSampleRate / (0.2f * time + s.invSampleRate);
        s.expState += k * (static_cast<double>(x[n]) - s.expState);
        if (std::fabs(s.expState) < 1e-30) s.expState = 0.0; // no subnormals
        out[n] = static_cast<float>(s.expState);
    }
}

// One key step per table time; keeps stepping around a steady input.
void Linear(LagState& s, const float* x, const float* mod, float sampleRate, float* out) {
    const dsp::BreakpointTable<64>& table = LagLinearTable();
    for (int n = 0; n < kBlockSize; ++n) {
        const float samples = table.Lookup(dsp::InputOr0(mod, n) + s.params[kLagRate]) * sampleRate;
        const float direction =
            static_cast<double>(x[n]) - s.linState >= 0.0 ? kKeyStep : -kKeyStep;
        s.linStep = direction / samples;
        s.linState += s.linStep;
        out[n] = static_cast<float>(s.linState);
    }
}

// Every glide takes the table time; a note-on restarts it from where it is.
void EqualTime(LagState& s, const float* x, const float* mod, float sampleRate, bool triggered,
               float* out) {
    const dsp::BreakpointTable<64>& table = LagEqualTimeTable();
    for (int n = 0; n < kBlockSize; ++n) {
        const float samples = table.Lookup(dsp::InputOr0(mod, n) + s.params[kLagRate]) * sampleRate;
        if (x[n] != s.equalTarget || triggered) {
            s.equalTarget = x[n];
            s.equalDelta = static_cast<float>(static_cast<double>(x[n]) - s.linState);
            s.equalStep = s.equalDelta / samples;
        }
        const double target = s.equalTarget;
        if (s.equalDelta > 0.0f)
            s.linState = s.linState < target ? s.linState + s.equalStep : target;
        else if (s.equalDelta < 0.0f)
            s.linState = s.linState > target ? s.linState + s.equalStep : target;
        else
            s.linState += s.equalStep;
        out[n] = static_cast<float>(s.linState);
    }
}

void Derive(LagState& s) {
    const ParamRecord<kLagParamCount>& p = s.params;
    s.inputIndex = s.selectableInputs > 0
                       ? StepIndex(p[kLagInputSelector], static_cast<float>(s.selectableInputs),
                                   s.selectableInputs - 1)
                       : 0;
    s.linearOn = p[kLagIsLinear] > 0.0f ? 1 : 0;
    s.equalTimeOn = s.linearOn != 0 && p[kLagEqualTime] > 0.0f ? 1 : 0;
    s.legatoOn = p[kLagLegato] > 0.0f ? 1 : 0;
}

} // namespace

void Init(LagState& state, int32_t voiceIndex) {
    state.voiceIndex = voiceIndex;
    // Built here, not on the audio thread.
    LagExponentialTable();
    LagLinearTable();
    LagEqualTimeTable();
}

void RefreshParams(LagState& s) {
    if (s.params.Refresh()) Derive(s);
}

int32_t Process(LagState& s, Inputs in, uint64_t, Outputs out, uint64_t,
                const ProcessContext& ctx) {
    RefreshParams(s);
    if (ctx.voiceState == nullptr) return kProcessMissing;
    const VoiceState& voices = *ctx.voiceState;
    const bool gate = HasVoice(voices.gateVoices, s.voiceIndex);
    if (!HasVoice(voices.activeVoices, s.voiceIndex)) {
        if (out != nullptr && out[0] != nullptr && ctx.frameCount > 0)
            std::fill(out[0], out[0] + ctx.frameCount, 0.0f);
        s.gateState = gate ? 1 : 0;
        return kProcessOk;
    }
    if (in == nullptr || out == nullptr || out[0] == nullptr) return kProcessMissing;
    if (ctx.sampleRate != s.lastSampleRate) {
        s.lastSampleRate = ctx.sampleRate;
        s.invSampleRate = 1.0f / ctx.sampleRate;
    }
    const bool triggered = HasVoice(voices.triggerVoices, s.voiceIndex);
    if (triggered) s.phraseStart = s.gateState == 0 ? 1 : 0;
    s.gateState = gate ? 1 : 0;
    if (s.selectableInputs > 29 || s.inputIndex > 29 || in[0] == nullptr) return kProcessUnusable;

    const float* x = in[0];
    const float* mod = in[1];
    float* output = out[0];
    // Legato: the first note of a phrase jumps, only overlapping notes glide.
    if (s.legatoOn != 0 && s.phraseStart != 0) {
        std::copy(x, x + kBlockSize, output);
        s.expState = s.linState = s.equalTarget = x[kBlockSize - 1];
        return kProcessOk;
    }
    if (s.linearOn == 0)
        Exponential(s, x, mod, output);
    else if (s.equalTimeOn == 0)
        Linear(s, x, mod, ctx.sampleRate, output);
    else
        EqualTime(s, x, mod, ctx.sampleRate, triggered, output);
    return kProcessOk;
}

} // namespace Norvell::Vantor
