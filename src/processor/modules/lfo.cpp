#include "processor/modules/lfo.h"

#include "dsp/dsputil.h"
#include "dsp/lanes.h"
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
    return speedMod == nullptr || dsp::AllEqualFirst(speedMod, kBlockSize);
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

// The unsoftened periodic waves of up to four LFOs, one per lane. Every lane
// makes the scalar step's operations: the phase adds and wraps in double,
// the rest is float, branches become selects. Unused lanes run on scratch.
// The ramps of square and saws are stepped only in groups that have one.
template <bool kSlewed>
void PeriodicLanes(LfoState* const* states, float* const* out0, float* const* out1, int lanes) {
    static constexpr float kSilent[kBlockSize] = {};
    alignas(16) double inc[kBlockSize][4]; // every lane written below
    alignas(16) float slewInc[kBlockSize][4];
    bool isWave[4][4] = {}; // [wave][lane]
    LfoSlew slew[4] = {};
    alignas(16) double phase[4] = {};
    const float* amplitude[4] = {kSilent, kSilent, kSilent, kSilent};
    float scratch[2][kBlockSize];
    float* o0[4] = {scratch[0], scratch[0], scratch[0], scratch[0]};
    float* o1[4] = {scratch[1], scratch[1], scratch[1], scratch[1]};
    bool pending[4] = {};
    for (int l = 0; l < 4; ++l) {
        if (l >= lanes) {
            for (int n = 0; n < kBlockSize; ++n) inc[n][l] = 0.0;
            for (int n = 0; n < kBlockSize; ++n) slewInc[n][l] = 0.0f;
            isWave[0][l] = true;
            continue;
        }
        const LfoState& s = *states[l];
        const double inv = s.invSampleRate;
        for (int n = 0; n < kBlockSize; ++n) inc[n][l] = static_cast<double>(s.rateHz[n]) * inv;
        for (int n = 0; n < kBlockSize; ++n) slewInc[n][l] = s.rateHz[n] * s.invSampleRate;
        const auto wave = static_cast<uint32_t>(s.wave);
        isWave[wave][l] = true;
        if (wave != 0) slew[l] = s.slew[wave - 1];
        phase[l] = s.shape.phase;
        amplitude[l] = s.amplitude;
        pending[l] = s.shape.firstHalfPending != 0;
        o0[l] = out0[l];
        o1[l] = out1[l];
    }

    __m128d phase01 = _mm_load_pd(phase);
    __m128d phase23 = _mm_load_pd(phase + 2);
    const __m128d half = _mm_set1_pd(0.5);
    const __m128d restart = _mm_set1_pd(-0.5);
    const dsp::Lanes zero = dsp::Splat(0.0f);
    const dsp::Lanes two = dsp::Splat(2.0f);
    const dsp::Lanes halfF = dsp::Splat(0.5f);
    dsp::Lanes firstHalf = dsp::MaskWhere(pending[0], pending[1], pending[2], pending[3]);
    dsp::Lanes restarted = dsp::MaskWhere(false, false, false, false);
    dsp::Lanes p = zero;
    dsp::Lanes tri = zero;
    const auto waveMask = [&](int w) {
        return dsp::MaskWhere(isWave[w][0], isWave[w][1], isWave[w][2], isWave[w][3]);
    };
    const dsp::Lanes isTriangle = waveMask(0);
    const dsp::Lanes isSquare = waveMask(1);
    const dsp::Lanes isRising = waveMask(2);
    const dsp::Lanes signBit = dsp::Splat(-0.0f);
    const dsp::Lanes thirtyTwo = dsp::Splat(32.0f);
    const dsp::Lanes thirtyOne = dsp::Splat(31.0f);
    const dsp::Lanes fallSlope = dsp::Splat(0.96875f);
    const dsp::Lanes jumpLimit = dsp::Splat(0.9f);
    const dsp::Lanes one = dsp::Splat(1.0f);
    dsp::Lanes previous{
        _mm_setr_ps(slew[0].previous, slew[1].previous, slew[2].previous, slew[3].previous)};
    dsp::Lanes held{_mm_setr_ps(slew[0].held, slew[1].held, slew[2].held, slew[3].held)};
    dsp::Lanes step{_mm_setr_ps(slew[0].step, slew[1].step, slew[2].step, slew[3].step)};
    dsp::Lanes counter{
        _mm_setr_ps(static_cast<float>(slew[0].counter), static_cast<float>(slew[1].counter),
                    static_cast<float>(slew[2].counter), static_cast<float>(slew[3].counter))};
    dsp::Lanes active = dsp::MaskWhere(slew[0].active != 0, slew[1].active != 0,
                                       slew[2].active != 0, slew[3].active != 0);
    for (int n0 = 0; n0 < kBlockSize; n0 += 4) {
        dsp::Lanes ps[4];
        dsp::Lanes tris[4];
        for (int j = 0; j < 4; ++j) {
            const int n = n0 + j;
            phase01 = _mm_add_pd(phase01, _mm_load_pd(inc[n]));
            phase23 = _mm_add_pd(phase23, _mm_load_pd(inc[n] + 2));
            const __m128d wrap01 = _mm_cmpgt_pd(phase01, half);
            const __m128d wrap23 = _mm_cmpgt_pd(phase23, half);
            phase01 = _mm_or_pd(_mm_and_pd(wrap01, restart), _mm_andnot_pd(wrap01, phase01));
            phase23 = _mm_or_pd(_mm_and_pd(wrap23, restart), _mm_andnot_pd(wrap23, phase23));
            const dsp::Lanes wrapped{_mm_shuffle_ps(_mm_castpd_ps(wrap01), _mm_castpd_ps(wrap23),
                                                    _MM_SHUFFLE(2, 0, 2, 0))};
            p = dsp::Lanes{_mm_movelh_ps(_mm_cvtpd_ps(phase01), _mm_cvtpd_ps(phase23))};
            // The second half restarts the softening counter after a first half.
            const dsp::Lanes second = dsp::GreaterEqual(p, zero);
            restarted = dsp::Lanes{
                _mm_or_ps(restarted.v, _mm_or_ps(wrapped.v, _mm_and_ps(second.v, firstHalf.v)))};
            firstHalf = dsp::Lanes{_mm_andnot_ps(second.v, _mm_castsi128_ps(_mm_set1_epi32(-1)))};
            tri = dsp::Select(second, halfF - two * p, two * p + halfF);
            ps[j] = p;
            if constexpr (!kSlewed) {
                tris[j] = tri;
                continue;
            }
            // Square, rising or falling saw, with a 32-sample ramp for a jump.
            const dsp::Lanes square = dsp::Select(second, halfF, zero);
            const dsp::Lanes falling{_mm_xor_ps(p.v, signBit.v)};
            const dsp::Lanes w = dsp::Select(isSquare, square, dsp::Select(isRising, p, falling));
            const dsp::Lanes slope = dsp::Load(slewInc[n]);
            const dsp::Lanes jump = w - previous;
            const dsp::Lanes big{_mm_cmpgt_ps(_mm_andnot_ps(signBit.v, jump.v), jumpLimit.v)};
            const dsp::Lanes ramp =
                dsp::Select(isSquare, jump / thirtyTwo,
                            dsp::Select(isRising, (jump - thirtyOne * slope) / thirtyTwo,
                                        jump / thirtyTwo + fallSlope * slope));
            held = dsp::Select(big, previous, held);
            step = dsp::Select(big, ramp, step);
            active = dsp::Lanes{_mm_or_ps(active.v, big.v)};
            held = dsp::Select(active, held + step, held);
            const dsp::Lanes value = dsp::Select(active, held, w);
            const dsp::Lanes done{_mm_and_ps(active.v, dsp::GreaterEqual(counter, thirtyOne).v)};
            counter = dsp::Select(active, dsp::Select(done, zero, counter + one), counter);
            active = dsp::Lanes{_mm_andnot_ps(done.v, active.v)};
            previous = w;
            tris[j] = dsp::Select(isTriangle, tri, value);
        }
        // Rows are samples, columns LFOs: turn them into one row per LFO.
        dsp::Lanes a0 = dsp::Load(amplitude[0] + n0);
        dsp::Lanes a1 = dsp::Load(amplitude[1] + n0);
        dsp::Lanes a2 = dsp::Load(amplitude[2] + n0);
        dsp::Lanes a3 = dsp::Load(amplitude[3] + n0);
        dsp::Transpose(a0, a1, a2, a3);
        tris[0] = tris[0] * a0;
        tris[1] = tris[1] * a1;
        tris[2] = tris[2] * a2;
        tris[3] = tris[3] * a3;
        dsp::Transpose(ps[0], ps[1], ps[2], ps[3]);
        dsp::Transpose(tris[0], tris[1], tris[2], tris[3]);
        for (int l = 0; l < 4; ++l) {
            dsp::Store(o1[l] + n0, ps[l]);
            dsp::Store(o0[l] + n0, tris[l]);
        }
    }

    _mm_store_pd(phase, phase01);
    _mm_store_pd(phase + 2, phase23);
    float last[4];
    float lastTri[4];
    float restartedBits[4];
    float firstHalfBits[4];
    dsp::Store(last, p);
    dsp::Store(lastTri, tri);
    dsp::Store(restartedBits, restarted);
    dsp::Store(firstHalfBits, firstHalf);
    for (int l = 0; l < lanes; ++l) {
        dsp::PeriodicShape& shape = states[l]->shape;
        shape.phase = phase[l];
        shape.phaseOut = last[l];
        shape.fallingSawValue = -last[l];
        shape.triangleValue = lastTri[l];
        shape.squareValue = last[l] >= 0.0f ? 0.5f : 0.0f;
        if (std::signbit(restartedBits[l])) shape.softenCounter = 0;
        shape.firstHalfPending = std::signbit(firstHalfBits[l]) ? 1 : 0;
    }
    float slewPrevious[4];
    float slewHeld[4];
    float slewStep[4];
    float slewCounter[4];
    float slewActive[4];
    dsp::Store(slewPrevious, previous);
    dsp::Store(slewHeld, held);
    dsp::Store(slewStep, step);
    dsp::Store(slewCounter, counter);
    dsp::Store(slewActive, active);
    for (int l = 0; l < lanes; ++l) {
        const auto wave = static_cast<uint32_t>(states[l]->wave);
        if (wave == 0) continue;
        LfoSlew& out = states[l]->slew[wave - 1];
        out.previous = slewPrevious[l];
        out.held = slewHeld[l];
        out.step = slewStep[l];
        out.counter = static_cast<uint32_t>(slewCounter[l]);
        out.active = std::signbit(slewActive[l]) ? 1 : 0;
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

void Prepare(LfoState& s, const float* speedMod, const float* ampMod, const ProcessContext& ctx) {
    RefreshParams(s);
    const bool gate = HasVoice(ctx.voiceState->gateVoices, s.voiceIndex);
    const bool trigger = HasVoice(ctx.voiceState->triggerVoices, s.voiceIndex);

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

    if (ampMod != nullptr) {
        const float amp = s.params[kLfoAmp];
        for (int n = 0; n < kBlockSize; ++n)
            s.amplitude[n] = dsp::Clamp(amp + ampMod[n], 0.0f, 1.0f);
    }

    switch (s.wave) {
    case LfoWave::RandomSteps:
    case LfoWave::SampleAndHold: ComputePeriods(s, speedMod, ctx.tempo); break;
    case LfoWave::FastRandomSteps: break;
    default: ComputeRates(s, speedMod, ctx.tempo); break;
    }
}

bool InLanes(const LfoState& s) {
    return s.wave <= LfoWave::FallingSaw && !s.softened;
}

void ProcessInLanes(LfoState* const* states, float* const* out0, float* const* out1, int count) {
    for (int first = 0; first < count; first += 4) {
        const int lanes = std::min(4, count - first);
        bool slewed = false;
        for (int l = 0; l < lanes; ++l)
            slewed = slewed || states[first + l]->wave != LfoWave::Triangle;
        if (slewed)
            PeriodicLanes<true>(states + first, out0 + first, out1 + first, lanes);
        else
            PeriodicLanes<false>(states + first, out0 + first, out1 + first, lanes);
    }
}

int32_t Process(LfoState& s, Inputs in, uint64_t, Outputs out, uint64_t,
                const ProcessContext& ctx) {
    RefreshParams(s);
    if (ctx.voiceState == nullptr) return kProcessMissing;
    if (out == nullptr || out[0] == nullptr || out[1] == nullptr) return kProcessMissing;
    float* out0 = out[0];
    float* out1 = out[1];
    const float* speedMod = in != nullptr ? in[0] : nullptr;
    const float* ampMod = in != nullptr ? in[1] : nullptr;
    const float* source = in != nullptr ? in[2] : nullptr;
    Prepare(s, speedMod, ampMod, ctx);

    if (InLanes(s)) {
        LfoState* const one[1] = {&s};
        ProcessInLanes(one, &out0, &out1, 1);
        return kProcessOk;
    }
    switch (s.wave) {
    case LfoWave::RandomSteps: RandomWave(s, s.randomSteps, s.periodSeconds, out0, out1); break;
    case LfoWave::FastRandomSteps: {
        float period[kBlockSize];
        std::fill_n(period, kBlockSize, kLfoFastRandomPeriod);
        RandomWave(s, s.fastRandomSteps, period, out0, out1);
        break;
    }
    case LfoWave::SampleAndHold: SampleAndHold(s, source, out0, out1); break;
    default: PeriodicWaves(s, out0, out1); break;
    }
    return kProcessOk;
}

} // namespace Norvell::Vantor
