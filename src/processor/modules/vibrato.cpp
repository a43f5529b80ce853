#include "processor/modules/vibrato.h"

#include <cmath>

namespace Norvell::Vantor {

namespace {

// The softened first half of the square runs from 0 to -1.
constexpr dsp::SquareFall kSquareFall{0.0f, -1.0f};

// Only exactly 1, 2 or 3 picks a control input.
const float* PickInput(Inputs in, float selector) {
    if (in == nullptr) return nullptr;
    if (selector == 1.0f) return in[0];
    if (selector == 2.0f) return in[1];
    if (selector == 3.0f) return in[2];
    return nullptr;
}

float Rate(const VibratoState& s, const dsp::BreakpointTable<64>& table, const float* speedIn,
           int n) {
    float speed = s.params[kVibSpeed];
    if (speedIn != nullptr) speed += speedIn[n] * s.speedModAmount;
    return table.Lookup(speed); // the lookup clamps to 0..1
}

float Amplified(const VibratoState& s, const float* ampIn, int n, float w) {
    if (ampIn != nullptr)
        return dsp::Clamp(2.0f * s.ampModAmount * ampIn[n] + s.params[kVibAmp], -1.0f, 1.0f) * w;
    return w * s.params[kVibAmp];
}

void RandomWave(VibratoState& s, dsp::RandomSteps& steps, const float* speedIn, const float* ampIn,
                bool fast, float sampleRate, float* out0) {
    const bool soften = s.params[kVibLag] == 1.0f;
    const double timeStep = 1.0f / sampleRate;
    const dsp::BreakpointTable<64>& table = dsp::LfoSpeedTable();
    for (int n = 0; n < kBlockSize; ++n) {
        const float rate = fast ? kVibratoFastRandomRate : Rate(s, table, speedIn, n);
        dsp::StepRandom(steps, s.random, 1.0f / rate, timeStep);
        out0[n] =
            Amplified(s, ampIn, n, dsp::GlideRandom(s.random, steps.value, soften, s.softening));
    }
}

void PeriodicWaves(VibratoState& s, const float* speedIn, const float* ampIn, float sampleRate,
                   float* out0, float* out1) {
    const bool soften = s.params[kVibLag] == 1.0f;
    // Waves 4 and above that are not exactly 4.0 or 5.0 write nothing.
    const int32_t wave =
        s.waveSelect > -1.0f && s.waveSelect < 4.0f ? static_cast<int32_t>(s.waveSelect) : 4;
    const double rateScale = 1.0 / static_cast<double>(sampleRate);
    const dsp::BreakpointTable<64>& table = dsp::LfoSpeedTable();
    for (int n = 0; n < kBlockSize; ++n) {
        const float rate = Rate(s, table, speedIn, n);
        dsp::StepPeriodic(s.shape, static_cast<double>(rate) * rateScale, soften, s.softening,
                          kSquareFall);
        switch (wave) {
        case 0: out0[n] = Amplified(s, ampIn, n, s.shape.triangleValue); break;
        case 1:
            // Without an amplitude source the rising saw is shifted down by 0.5.
            out0[n] = ampIn != nullptr ? Amplified(s, ampIn, n, s.shape.phaseOut)
                                       : (s.shape.phaseOut - 0.5f) * s.params[kVibAmp];
            break;
        case 2: out0[n] = Amplified(s, ampIn, n, s.shape.fallingSawValue); break;
        case 3: out0[n] = Amplified(s, ampIn, n, s.shape.squareValue); break;
        default: continue;
        }
        out1[n] = s.shape.phaseOut;
    }
}

void Derive(VibratoState& s) {
    const ParamRecord<kVibParamCount>& p = s.params;
    s.waveSelect = p[kVibWave] * 5.0f;
    s.speedModAmount = 2.0f * p[kVibSpeedMod] - 1.0f;
    s.ampModAmount = 2.0f * p[kVibAmpMod] - 1.0f;
    s.ampSource = p[kVibAmpSrc] * 3.0f;
    s.speedSource = p[kVibSpeedSrc] * 3.0f;
}

} // namespace

void Init(VibratoState& state) {
    state.softening.form = dsp::Softening::Form::Divided;
    dsp::LfoSpeedTable(); // built here, not on the audio thread
}

void RefreshParams(VibratoState& s) {
    if (s.params.Refresh()) Derive(s);
}

int32_t Process(VibratoState& s, Inputs in, uint64_t, Outputs out, uint64_t,
                const ProcessContext& ctx) {
    if (out == nullptr || out[0] == nullptr || out[1] == nullptr) return kProcessMissing;
    if (!(ctx.sampleRate > 0.0f)) return kProcessUnusable;
    s.softening.SetSampleRate(ctx.sampleRate);
    const float* speedIn = PickInput(in, s.speedSource);
    const float* ampIn = PickInput(in, s.ampSource);
    if (s.waveSelect == 4.0f)
        RandomWave(s, s.steps, speedIn, ampIn, false, ctx.sampleRate, out[0]);
    else if (s.waveSelect == 5.0f)
        RandomWave(s, s.fastSteps, speedIn, ampIn, true, ctx.sampleRate, out[0]);
    else
        PeriodicWaves(s, speedIn, ampIn, ctx.sampleRate, out[0], out[1]);
    return kProcessOk;
}

} // namespace Norvell::Vantor
