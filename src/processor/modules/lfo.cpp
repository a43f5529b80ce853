#include "processor/modules/lfo.h"

#include "dsp/dsputil.h"
#include "dsp/random.h"
#include "processor/modules/voices.h"

#include <cmath>

namespace Norvell::Vantor {

namespace {

// The softened first half of the square falls from 0.5 to 0.
constexpr dsp::SquareFall kSquareFall{0.5f, -0.5f};

// Rate in Hz of every sample of the block, free or a tempo division.
void ComputeRates(LfoState& s, const float* speedMod, float tempo) {
    if (s.syncOn != 0) {
        for (int n = 0; n < kBlockSize; ++n) {
            const float x = dsp::Clamp(dsp::InputOr0(speedMod, n) + s.syncedSpeedValue, 0.0f, 1.0f);
            const auto index = static_cast<int32_t>(12.0f * x + 0.5f);
            s.rate[n] = kLfoTempoDivisions[index] * tempo;
        }
        return;
    }
    const dsp::BreakpointTable<64>& table = dsp::LfoSpeedTable();
    for (int n = 0; n < kBlockSize; ++n)
        s.rate[n] = table.Lookup(dsp::InputOr0(speedMod, n) + s.speedValue);
}

void ComputePeriods(LfoState& s, const float* speedMod, float tempo) {
    ComputeRates(s, speedMod, tempo);
    for (float& r : s.rate) r = 1.0f / r;
}

// Step of the 32-sample ramp that replaces a jump of `jump` in wave 1, 2 or 3;
// the saws also account for their own slope (inc per sample).
float SlewStep(uint32_t wave, float jump, float inc) {
    switch (wave) {
    case 1: return jump / 32.0f;
    case 2: return (jump - 31.0f * inc) / 32.0f;
    default: return jump / 32.0f + 0.96875f * inc;
    }
}

float Slewed(LfoSlew& slew, uint32_t wave, float w, float inc) {
    const float jump = w - slew.previous;
    if (std::fabs(jump) > 0.9f) {
        slew.held = slew.previous;
        slew.active = 1;
        slew.step = SlewStep(wave, jump, inc);
    }
    float value = w;
    if (slew.active != 0) {
        slew.held += slew.step;
        if (slew.counter >= 31) {
            slew.active = 0;
            slew.counter = 0;
        } else {
            ++slew.counter;
        }
        value = slew.held;
    }
    slew.previous = w;
    return value;
}

void PeriodicWaves(LfoState& s, const float* speedMod, float tempo, float* out0, float* out1) {
    ComputeRates(s, speedMod, tempo);
    const bool soften = s.lagValue == 1.0f;
    const double inv = s.invSampleRate;
    for (int n = 0; n < kBlockSize; ++n) {
        dsp::StepPeriodic(s.shape, static_cast<double>(s.rate[n]) * inv, soften, s.softening,
                          kSquareFall);
        out1[n] = s.shape.phaseOut;
        if (s.wave == 0) {
            out0[n] = s.shape.triangleValue * s.amplitude[n];
            continue;
        }
        const float w = s.wave == 1   ? s.shape.squareValue
                        : s.wave == 2 ? s.shape.phaseOut
                                      : s.shape.fallingSawValue;
        const float inc = s.rate[n] * s.invSampleRate;
        out0[n] = Slewed(s.slew[s.wave - 1], s.wave, w, inc) * s.amplitude[n];
    }
}

void RandomWave(LfoState& s, dsp::RandomSteps& steps, const float* period, float* out0,
                float* out1) {
    const bool soften = s.lagValue == 1.0f;
    const double timeStep = s.invSampleRate;
    for (int n = 0; n < kBlockSize; ++n) {
        out1[n] = dsp::StepRandom(steps, s.random, period[n], timeStep) ? 1.0f : -1.0f;
        out0[n] = dsp::GlideRandom(s.random, steps.value, soften, s.softening) * s.amplitude[n];
    }
}

void SampleAndHold(LfoState& s, const float* source, float* out0, float* out1) {
    const double timeStep = s.invSampleRate;
    for (int n = 0; n < kBlockSize; ++n) {
        if (s.wave6Timer >= static_cast<double>(s.rate[n])) {
            // No connected source holds 0.
            s.wave6Held = source != nullptr ? source[n] : 0.0f;
            out1[n] = 1.0f;
            s.wave6Timer = 0.0;
        } else {
            s.wave6Timer += timeStep;
            out1[n] = -1.0f;
        }
        out0[n] = (s.wave6PrevHeld + s.wave6Held) * 0.5f * s.amplitude[n];
        s.wave6PrevHeld = s.wave6Held;
    }
}

} // namespace

void Init(LfoState& state, int32_t voiceIndex) {
    state.voiceIndex = voiceIndex;
    state.softening.form = dsp::Softening::Form::Scaled;
    dsp::LfoSpeedTable(); // built here, not on the audio thread
    dsp::SeedRandom(dsp::ConstructionSeed());
}

void RefreshParams(LfoState& s) {
    if (!s.params.Refresh()) return;
    const ParamRecord<kLfoParamCount>& p = s.params;
    s.speedValue = p[kLfoSpeed];
    s.syncOn = p[kLfoSync] > 0.0f ? 1 : 0;
    s.syncedSpeedValue = p[kLfoSyncedSpeed];
    s.wave = static_cast<uint32_t>(StepIndex(p[kLfoWave], 6.0f, 6));
    s.retrigPoint = p[kLfoRetrigPoint];
    s.ampValue = p[kLfoAmp];
    s.lagValue = p[kLfoLag];
    s.retrigModeValue = 2.0f * p[kLfoRetrigMode];
    s.inputIndex = s.selectableInputs > 0
                       ? StepIndex(p[kLfoInputSelector], static_cast<float>(s.selectableInputs),
                                   s.selectableInputs - 1)
                       : 0;
}

int32_t Process(LfoState& s, Inputs in, uint64_t, Outputs out, uint64_t,
                const ProcessContext& ctx) {
    RefreshParams(s);
    if (ctx.voiceState == nullptr) return kProcessMissing;
    const bool gate = HasVoice(ctx.voiceState->gateVoices, s.voiceIndex);
    const bool trigger = HasVoice(ctx.voiceState->triggerVoices, s.voiceIndex);
    if (out == nullptr || out[0] == nullptr || out[1] == nullptr) return kProcessMissing;
    float* out0 = out[0];
    float* out1 = out[1];

    if (ctx.sampleRate != s.lastSampleRate) {
        s.lastSampleRate = ctx.sampleRate;
        s.invSampleRate = 1.0f / ctx.sampleRate;
        s.softening.SetSampleRate(ctx.sampleRate);
    }

    // Retrigger: mode 1 only when no key was held before this note.
    if (s.retrigModeValue != 0.0f && trigger && (s.retrigModeValue != 1.0f || s.prevGate == 0)) {
        float r = s.retrigPoint + 0.5f;
        if (r > 1.0f) r -= 1.0f;
        s.shape.phase = static_cast<double>(r - 0.5f);
        s.wave6Timer = 0.0;
        s.wave4.timer = 0.0;
    }
    s.prevGate = gate ? 1 : 0;

    const float* speedMod = in != nullptr ? in[0] : nullptr;
    const float* ampMod = in != nullptr ? in[1] : nullptr;
    const float* source = in != nullptr ? in[2] : nullptr;
    if (ampMod != nullptr)
        for (int n = 0; n < kBlockSize; ++n)
            s.amplitude[n] = dsp::Clamp(s.ampValue + ampMod[n], 0.0f, 1.0f);

    switch (s.wave) {
    case 4:
        ComputePeriods(s, speedMod, ctx.tempo);
        RandomWave(s, s.wave4, s.rate, out0, out1);
        break;
    case 5: {
        float period[kBlockSize];
        for (float& p : period) p = kLfoFastRandomPeriod;
        RandomWave(s, s.wave5, period, out0, out1);
        break;
    }
    case 6:
        ComputePeriods(s, speedMod, ctx.tempo);
        SampleAndHold(s, source, out0, out1);
        break;
    default: PeriodicWaves(s, speedMod, ctx.tempo, out0, out1); break;
    }
    return kProcessOk;
}

} // namespace Norvell::Vantor
