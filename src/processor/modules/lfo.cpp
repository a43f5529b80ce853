#include "processor/modules/lfo.h"

#include "dsp/dsputil.h"
#include "dsp/random.h"
#include "processor/modules/voices.h"

#include <algorithm>
#include <cmath>

namespace Norvell::Vantor {

namespace {

// The softened first half of the square falls from 0.5 to 0.
constexpr dsp::SquareFall kSquareFall{0.5f, -0.5f};

// Rate in Hz for a speed modulation sample, free or a tempo division.
float RateAt(const LfoState& s, float speedMod, float tempo) {
    if (s.syncOn) {
        const float x = dsp::Clamp(speedMod + s.params[kLfoSyncedSpeed], 0.0f, 1.0f);
        const auto index = static_cast<int32_t>(12.0f * x + 0.5f);
        return kLfoTempoDivisions[index] * tempo;
    }
    return dsp::LfoSpeedTable().Lookup(speedMod + s.params[kLfoSpeed]);
}

// True when every sample of the speed modulation equals the first (or there
// is none), so one rate serves the whole block.
bool Uniform(const float* speedMod) {
    if (speedMod == nullptr) return true;
    bool same = true;
    for (int n = 1; n < kBlockSize; ++n) same = same && speedMod[n] == speedMod[0];
    return same;
}

// Rate in Hz of every sample of the block.
void ComputeRates(LfoState& s, const float* speedMod, float tempo) {
    if (Uniform(speedMod)) {
        std::fill_n(s.rateHz, kBlockSize, RateAt(s, dsp::InputOr0(speedMod, 0), tempo));
        return;
    }
    for (int n = 0; n < kBlockSize; ++n) s.rateHz[n] = RateAt(s, speedMod[n], tempo);
}

// Seconds per step of every sample of the block.
void ComputePeriods(LfoState& s, const float* speedMod, float tempo) {
    if (Uniform(speedMod)) {
        const float rate = RateAt(s, dsp::InputOr0(speedMod, 0), tempo);
        std::fill_n(s.periodSeconds, kBlockSize, 1.0f / rate);
        return;
    }
    for (int n = 0; n < kBlockSize; ++n) s.periodSeconds[n] = 1.0f / RateAt(s, speedMod[n], tempo);
}

// Step of the 32-sample ramp that replaces a jump of `jump`; the saws also
// account for their own slope (inc per sample).
float SlewStep(LfoWave wave, float jump, float inc) {
    switch (wave) {
    case LfoWave::Square: return jump / 32.0f;
    case LfoWave::RisingSaw: return (jump - 31.0f * inc) / 32.0f;
    default: return jump / 32.0f + 0.96875f * inc;
    }
}

inline float Slewed(LfoSlew& slew, LfoWave wave, float w, float inc) {
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

// The shape and slew are stepped in locals: the output buffers could alias
// the state as far as the compiler knows, which would keep every field in
// memory across the stores.
void PeriodicWaves(LfoState& s, float* out0, float* out1) {
    const bool soften = s.softened;
    const double inv = s.invSampleRate;
    const dsp::Softening softening = s.softening;
    dsp::PeriodicShape shape = s.shape;
    if (s.wave == LfoWave::Triangle) {
        for (int n = 0; n < kBlockSize; ++n) {
            dsp::StepPeriodic(shape, static_cast<double>(s.rateHz[n]) * inv, soften, softening,
                              kSquareFall);
            out1[n] = shape.phaseOut;
            out0[n] = shape.triangleValue * s.amplitude[n];
        }
        s.shape = shape;
        return;
    }
    const LfoWave wave = s.wave;
    const auto slewIndex = static_cast<uint32_t>(wave) - 1;
    LfoSlew slew = s.slew[slewIndex];
    for (int n = 0; n < kBlockSize; ++n) {
        dsp::StepPeriodic(shape, static_cast<double>(s.rateHz[n]) * inv, soften, softening,
                          kSquareFall);
        out1[n] = shape.phaseOut;
        const float w = wave == LfoWave::Square      ? shape.squareValue
                        : wave == LfoWave::RisingSaw ? shape.phaseOut
                                                     : shape.fallingSawValue;
        const float inc = s.rateHz[n] * s.invSampleRate;
        out0[n] = Slewed(slew, wave, w, inc) * s.amplitude[n];
    }
    s.shape = shape;
    s.slew[slewIndex] = slew;
}

void RandomWave(LfoState& s, dsp::RandomSteps& steps, const float* period, float* out0,
                float* out1) {
    const double timeStep = s.invSampleRate;
    for (int n = 0; n < kBlockSize; ++n) {
        out1[n] = dsp::StepRandom(steps, s.random, period[n], timeStep) ? 1.0f : -1.0f;
        out0[n] = dsp::GlideRandom(s.random, steps.value, s.softened, s.softening) * s.amplitude[n];
    }
}

void SampleAndHold(LfoState& s, const float* source, float* out0, float* out1) {
    const double timeStep = s.invSampleRate;
    LfoHold& hold = s.hold;
    for (int n = 0; n < kBlockSize; ++n) {
        if (hold.timer >= static_cast<double>(s.periodSeconds[n])) {
            // No connected source holds 0.
            hold.value = source != nullptr ? source[n] : 0.0f;
            out1[n] = 1.0f;
            hold.timer = 0.0;
        } else {
            hold.timer += timeStep;
            out1[n] = -1.0f;
        }
        out0[n] = (hold.previous + hold.value) * 0.5f * s.amplitude[n];
        hold.previous = hold.value;
    }
}

void Derive(LfoState& s) {
    const ParamRecord<kLfoParamCount>& p = s.params;
    s.syncOn = p[kLfoSync] > 0.0f;
    s.wave = static_cast<LfoWave>(StepIndex(p[kLfoWave], 6.0f, 6));
    s.softened = p[kLfoLag] == 1.0f;
    s.retrigMode = 2.0f * p[kLfoRetrigMode];
    s.inputIndex = s.selectableInputs > 0
                       ? StepIndex(p[kLfoInputSelector], static_cast<float>(s.selectableInputs),
                                   s.selectableInputs - 1)
                       : 0;
}

} // namespace

void Init(LfoState& state, int32_t voiceIndex) {
    const ParamRecord<kLfoParamCount> params = state.params;
    state = LfoState{};
    state.params = params;
    state.params.refreshPending = true;
    state.voiceIndex = voiceIndex;
    state.softening.form = dsp::Softening::Form::Scaled;
    dsp::LfoSpeedTable(); // built here, not on the audio thread
    dsp::SeedRandom(dsp::ConstructionSeed());
}

void RefreshParams(LfoState& s) {
    if (s.params.Refresh()) Derive(s);
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
    if (s.retrigMode != 0.0f && trigger && (s.retrigMode != 1.0f || s.prevGate == 0)) {
        float r = s.params[kLfoRetrigPoint] + 0.5f;
        if (r > 1.0f) r -= 1.0f;
        s.shape.phase = static_cast<double>(r - 0.5f);
        s.hold.timer = 0.0;
        s.randomSteps.timer = 0.0;
    }
    s.prevGate = gate ? 1 : 0;

    const float* speedMod = in != nullptr ? in[0] : nullptr;
    const float* ampMod = in != nullptr ? in[1] : nullptr;
    const float* source = in != nullptr ? in[2] : nullptr;
    if (ampMod != nullptr) {
        const float amp = s.params[kLfoAmp];
        for (int n = 0; n < kBlockSize; ++n)
            s.amplitude[n] = dsp::Clamp(amp + ampMod[n], 0.0f, 1.0f);
    }

    switch (s.wave) {
    case LfoWave::RandomSteps:
        ComputePeriods(s, speedMod, ctx.tempo);
        RandomWave(s, s.randomSteps, s.periodSeconds, out0, out1);
        break;
    case LfoWave::FastRandomSteps: {
        float period[kBlockSize];
        std::fill_n(period, kBlockSize, kLfoFastRandomPeriod);
        RandomWave(s, s.fastRandomSteps, period, out0, out1);
        break;
    }
    case LfoWave::SampleAndHold:
        ComputePeriods(s, speedMod, ctx.tempo);
        SampleAndHold(s, source, out0, out1);
        break;
    default:
        ComputeRates(s, speedMod, ctx.tempo);
        PeriodicWaves(s, out0, out1);
        break;
    }
    return kProcessOk;
}

} // namespace Norvell::Vantor
