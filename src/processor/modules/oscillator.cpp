#include "processor/modules/oscillator.h"

#include "dsp/breakpointtable.h"
#include "dsp/dsputil.h"
#include "dsp/fastmath.h"
#include "dsp/lanes.h"
#include "dsp/random.h"
#include "processor/modules/voices.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Norvell::Vantor {
namespace {

constexpr float kStepTableData[kStepTableLength] = {
#include "steptable.inc"
};

// Detune law on 62 steps: its points (0, 5/31, 10/31, 1/2, 21/31, 26/31, 1)
// fall on the indices 0, 10, 20, 31, 42, 52, 62 (entry 63 is never read).
constexpr float kDetuneSteps = 62.0f;
const dsp::BreakpointTable<64> kDetuneTable =
    dsp::BreakpointTable<64>::FromBreakpoints({{0, 0.0f},
                                               {10, 0.276f},
                                               {20, 0.444f},
                                               {31, 0.5f},
                                               {42, 0.544f},
                                               {52, 0.724f},
                                               {62, 1.0f},
                                               {63, 1.0f}});

const dsp::BreakpointTable<64> kPulseWidthTable =
    dsp::BreakpointTable<64>::FromBreakpoints({{0, 0.07786905f},
                                               {10, 0.2163280f},
                                               {20, 0.36512917f},
                                               {31, 0.49767828f},
                                               {40, 0.65670204f},
                                               {50, 0.79429406f},
                                               {60, 0.945502f},
                                               {63, 0.9835f}});

constexpr float kInitialRate = 44100.0f;
constexpr float kModulationRange = 16.0f;  // semitones of full pitch modulation
constexpr float kPitchScale = 0.25396827f; // 16/63: vibrato and bend inputs
constexpr float kPulseModulation = 1.232f; // pulse-width input scale
constexpr float kGainScale = 1.68f;        // output gain after the 0..1 clamp
constexpr float kLinearFmHz = 5000.0f;     // linear FM input scale
constexpr float kMinFreq = 20.0f;
constexpr float kMaxFreq = 16000.0f;
constexpr float kHpDamping = 1.4144272f; // triangle high-pass damping
constexpr float kFreeBaseHz = 16.0f;     // base frequency without keyboard follow
constexpr float kA4Hz = 440.0f;
constexpr float kA4Key = 69.0f;
constexpr float kExactSemitone = 0.083333336f; // 1/12, for the glide key without keyboard follow
// Pitch jitter from the ambient noise: 0.006 * 0.5 * 63.
constexpr float kJitterScale = 0.006f * 0.5f * 63.0f;

// Levels of the waves in the mix.
constexpr float kSawLevel = 0.317f;
constexpr float kPulseLevel = 0.162f;
constexpr float kNoiseLevel = 0.108f;
constexpr float kTriangleLevelPerHz = 0.00005f; // the integrated square grows as 1/f
constexpr float kMasterFmTriangleLevel = 0.525f;
constexpr float kSyncedTriangleLevel = 0.56f;
constexpr float kAuxFmScale = 0.001f; // FM triangle on the auxiliary output, per Hz

// Corners: the pulse and noise smoothing at 10 kHz (2 pi 10000), the
// triangle high-pass at 10 Hz (pi 10, prewarped), the noise peak at 72 Hz
// (2 pi 72), 3 dB high (A = 10^(3/20)) with a bandwidth term of ln 2 / 2.
constexpr float kSmoothingRadians = 62831.855f;
constexpr float kTriangleCornerRadians = 31.415928f;
constexpr float kNoisePeakRadians = 452.38934f;
constexpr float kNoisePeakBandwidth = 0.3465736f;
constexpr float kNoisePeakGain = 1.4125376f;

// Mains hum at 112 Hz (2 pi 112) through a soft clipper, far below the pulse.
constexpr float kHumRadians = 703.7168f;
constexpr float kHumDrive = 72.2f;
constexpr float kHumOffset = 35.8f;
constexpr float kHumLevel = 0.009135802f * 0.01f;

// Noise: 0..32767 to -1..1.
constexpr float kNoiseStep = 0.000061038882f;
constexpr float kNoiseOffset = 0.99996948f;

using dsp::Clamp;
using dsp::kSemitone;
using dsp::kTwoPi;

// Calls tap(q, b) for the taps of a step d samples in the past: b is the
// step table read with linear interpolation at 64 d + 64 q, for the taps that
// fall inside the table. d may exceed 1 (a pulse threshold that jumps by more
// than one phase step); from 32 on nothing is left to correct. A negative or
// non-numeric d never occurs in the cores; it is read as 0 and as no step.
template <typename Tap> inline void ForEachTap(float d, Tap&& tap) {
    if (!(d < static_cast<float>(kBlockSize))) return;
    const float pos = static_cast<float>(kStepOversampling) * std::max(d, 0.0f);
    const int j = static_cast<int>(pos);
    const float t = pos - static_cast<float>(j);
    for (int q = 0; q < kBlockSize; ++q) {
        const int idx = j + kStepOversampling * q;
        if (idx >= kStepTableLength - 1) break;
        tap(q, (1.0f - t) * kStepTableData[idx] + t * kStepTableData[idx + 1]);
    }
}

inline int Slot(int32_t index) {
    return index & (kRingSize - 1);
}

} // namespace

void InsertStep(float* ring, int32_t writeIndex, float d, float h, bool rising) {
    ForEachTap(d, [&](int q, float b) {
        ring[Slot(writeIndex + q)] += rising ? h * (b - 1.0f) : h * (1.0f - b);
    });
}

namespace {

// Coefficients that depend on the sample rate only (the hum table is filled
// separately because it advances its own phase).
void SetRateCoefficients(OscillatorState& s, float rate) {
    s.invRate = 1.0f / rate;
    s.smooth10k = 1.0f - std::exp(-kSmoothingRadians / rate);
    s.triG = std::tan(kTriangleCornerRadians / rate);

    // Peaking filter at 72 Hz for the noise.
    const float w = s.invRate * kNoisePeakRadians;
    const float sw = std::sin(w);
    const float cw = std::cos(w);
    const float alpha = sw * std::sinh(kNoisePeakBandwidth * w / sw);
    const float A = kNoisePeakGain;
    const float d = 1.0f / (1.0f + alpha / A);
    s.b0 = (1.0f + alpha * A) * d;
    s.b1 = -2.0f * cw * d;
    s.a1 = s.b1;
    s.b2 = (1.0f - alpha * A) * d;
    s.a2 = (1.0f - alpha / A) * d;
}

// 112 Hz hum through a soft clipper, added to the pulse; the same 32 values
// serve every block until the next rate change.
void FillHumTable(OscillatorState& s) {
    for (float& hum : s.humTable) {
        const float x = std::sin(s.humPhase) * kHumDrive + kHumOffset;
        hum = Clamp(dsp::SoftSaturate(x), -1.0f, 1.0f) * kHumLevel;
        s.humPhase += s.invRate * kHumRadians;
        if (s.humPhase > kTwoPi) s.humPhase -= kTwoPi; // one turn at most per sample
    }
}

void Derive(OscillatorState& s) {
    const auto& p = s.params;
    s.sawOn = p[kOscSawOn] == 1.0f;
    s.pulseOn = p[kOscPulseOn] == 1.0f;
    s.triangleOn = p[kOscTriangleOn] > 0.0f;
    s.fmTriangleOn = p[kOscTriangleOn] != 0.0f;
    s.noiseOn = p[kOscNoiseOn] == 1.0f;
    s.master = p[kOscMaster] == 1.0f;
    s.hardSync = p[kOscMaster] != 1.0f && p[kOscSync] == 1.0f;
    s.syncedTriangle = p[kOscSync] > 0.0f;
    s.mappedDetune = DetuneLaw(p[kOscDetune]);
    s.pulseBase = PulseWidthLaw(p[kOscPulseWidth]);
    s.keyFollow = p[kOscKeyboardFollow] != 0.0f;
    s.glideOn = p[kOscLagOn] != 0.0f;
    s.bendOn = p[kOscPitchbend] > 0.0f;
    s.vibratoOn = p[kOscVibrato] > 0.0f;
}

// FastPow2 of the last argument seen; equal arguments give equal results.
struct CachedPow2 {
    float argument = std::numeric_limits<float>::quiet_NaN();
    float value = 0.0f;
    float operator()(float x) {
        if (!(x == argument)) {
            argument = x;
            value = dsp::FastPow2(x);
        }
        return value;
    }
};

// Note table entry of a glide key: nearest index modulo 256; 128 and above
// (and anything not a number) give 0 Hz.
float GlideNoteFrequency(float key) {
    const float rounded = std::floor(key + 0.5f);
    if (!(std::fabs(rounded) < 1073741824.0f)) return 0.0f;
    const int32_t index = static_cast<int32_t>(rounded) & 255;
    return index < 128 ? dsp::NoteFrequencies()[index] : 0.0f;
}

// Static pitch, staticFreq and the 32 per-sample frequencies.
void ComputeFrequencies(OscillatorState& s, Inputs in) {
    const float pitch = (s.tuning.fineTune - 0.5f) + (s.mappedDetune - 0.5f) +
                        (s.tuning.voiceDetune - 0.5f) + 60.0f * s.tuning.voiceTranspose +
                        63.0f * s.params[kOscFreq] - 36.0f;
    const float staticFreq = dsp::FastPow2(kSemitone * pitch) * s.baseFreq;
    s.staticFreq = staticFreq >= 0.0f ? staticFreq : 0.0f;

    const float* pitchIn = in[kOscInPitch];
    const float* vibrato = in[kOscInVibrato];
    const float* bend = in[kOscInPitchbend];
    const float* jitter = in[kOscInJitter];
    const float* linearFm = in[kOscInLinearFm];
    const float* glide = s.glideOn ? in[kOscInGlide] : nullptr;
    const float bendScale = s.bendOn ? kPitchScale : 0.0f;
    const float vibScale = s.vibratoOn ? kPitchScale : 0.0f;
    const float jitterScale = kJitterScale;

    // The exponentials are taken once per distinct pitch: a block-constant
    // pitch costs one.
    CachedPow2 pitchFactor;
    CachedPow2 glideFactor;
    float base = s.baseFreq;
    for (int i = 0; i < kBlockSize; ++i) {
        const float mod = bend[i] * bendScale + pitchIn[i] + vibrato[i] * vibScale;
        const float m = Clamp(mod, -1.0f, 1.0f) * kModulationRange + pitch;
        if (glide != nullptr) {
            const float key = glide[i] * 127.0f - 12.0f;
            base = s.keyFollow ? GlideNoteFrequency(key)
                               : kA4Hz * glideFactor((key - kA4Key) * kExactSemitone);
        }
        float f = (jitter[i] * jitterScale + pitchFactor(kSemitone * m)) * base;
        if (linearFm != nullptr) f += linearFm[i] * kLinearFmHz;
        s.freqBuffer[i] = Clamp(f, kMinFreq, kMaxFreq);
    }
    s.baseFreq = base;
}

// One output sample of the triangle: four sub-samples at inc / 4 each, then
// two half-band stages (0.25, 0.5, 0.25) down to the output rate.
float TriangleSample(OversampledTriangle& tri, float inc) {
    const float sub = inc * 0.25f;
    float x[4];
    for (float& v : x) {
        tri.phase += sub;
        if (tri.phase >= 1.0f) tri.phase -= 1.0f;
        v = (tri.phase > 0.5f ? 2.0f * (1.0f - tri.phase) : 2.0f * tri.phase) - 0.5f;
    }
    const float y0 = 0.25f * tri.lastOdd1 + 0.5f * x[0] + 0.25f * x[1];
    const float y1 = 0.25f * x[1] + 0.5f * x[2] + 0.25f * x[3];
    tri.lastOdd1 = x[3];
    const float out = 0.25f * tri.lastOdd2 + 0.5f * y0 + 0.25f * y1;
    tri.lastOdd2 = y1;
    return out;
}

// The half of each ring not holding pending corrections is cleared for the
// taps of this block's steps.
void ClearFreeHalf(OscillatorState& s) {
    for (int k = 0; k < kBlockSize; ++k) {
        const int r = Slot(s.writeIndex + kBlockSize + k);
        s.sawRing[r] = 0.0f;
        s.pulseRing[r] = 0.0f;
        s.squareRing[r] = 0.0f;
    }
}

// Pulse threshold, phase advance and sync pulse of sample i; returns wrapped.
inline bool AdvancePhase(OscillatorState& s, const float* pulseWidthIn, int i, float inc) {
    s.pulseThreshold = Clamp(s.pulseBase - kPulseModulation * pulseWidthIn[i], 0.0f, 1.0f);
    s.phase += inc;
    const bool wrapped = s.phase >= 1.0f;
    if (wrapped) s.phase -= 1.0f;
    s.syncPulse[i] = wrapped ? 0.5f : 0.0f;
    return wrapped;
}

// Pulse rise at the threshold, common to both cores.
inline void PulseRise(OscillatorState& s, float inc) {
    if (s.phase >= s.pulseThreshold && s.pulseLevel == -0.5f) {
        InsertStep(s.pulseRing, s.writeIndex, (s.phase - s.pulseThreshold) / inc, 1.0f, true);
        s.pulseLevel = 0.5f;
    }
}

// The falling edge of the wrap at d = phase / inc into the given rings.
inline void WrapFall(OscillatorState& s, float inc, bool square) {
    const int32_t w = s.writeIndex;
    ForEachTap(s.phase / inc, [&](int q, float b) {
        const int r = Slot(w + q);
        s.sawRing[r] += 1.0f - b;
        s.pulseRing[r] += 1.0f - b;
        if (square) s.squareRing[r] += 1.0f - b;
    });
    s.pulseLevel = -0.5f;
    s.squareLevel = -0.5f;
}

void FreeRunningCore(OscillatorState& s, Inputs in, bool fmActive) {
    ClearFreeHalf(s);
    ComputeFrequencies(s, in);
    const float* pulseWidthIn = in[kOscInPulseWidth];
    for (int i = 0; i < kBlockSize; ++i) {
        const float inc = s.freqBuffer[i] * s.invRate;
        const bool wrapped = AdvancePhase(s, pulseWidthIn, i, inc);
        if (fmActive) s.fmTriangle[i] = TriangleSample(s.triangle, inc);
        const int32_t w = s.writeIndex;
        if (wrapped) {
            // Rises skipped in this cycle are made up before the fall.
            if (s.pulseLevel == -0.5f)
                InsertStep(s.pulseRing, w, (s.phase + 1.0f - s.pulseThreshold) / inc, 1.0f, true);
            if (s.squareLevel == -0.5f)
                InsertStep(s.squareRing, w, (s.phase + 0.5f) / inc, 1.0f, true);
            WrapFall(s, inc, true);
        }
        if (s.phase >= 0.5f && s.squareLevel == -0.5f) {
            InsertStep(s.squareRing, w, (s.phase - 0.5f) / inc, 1.0f, true);
            s.squareLevel = 0.5f;
        }
        PulseRise(s, inc);
        const int r = Slot(w);
        s.sawRing[r] += s.phase - 0.5f;
        s.pulseRing[r] += s.pulseLevel;
        s.squareRing[r] += s.squareLevel;
        s.writeIndex = Slot(w + 1);
    }
}

// Second oscillator slaved to the sync input: the square ring carries the
// oversampled triangle instead of a square, and the pulse comes out inverted.
void HardSyncCore(OscillatorState& s, Inputs in) {
    ClearFreeHalf(s);
    ComputeFrequencies(s, in);
    const float* pulseWidthIn = in[kOscInPulseWidth];
    const float* syncIn = in[kOscInSync] != nullptr ? in[kOscInSync] : kSilentBlock;
    for (int i = 0; i < kBlockSize; ++i) {
        const float inc = s.freqBuffer[i] * s.invRate;
        const bool wrapped = AdvancePhase(s, pulseWidthIn, i, inc);
        const int32_t w = s.writeIndex;
        const int r = Slot(w);
        const OversampledTriangle before = s.triangle;
        s.fmTriangle[i] = TriangleSample(s.triangle, inc);
        s.squareRing[r] = s.fmTriangle[i];

        const float sync = syncIn[i];
        if (sync != 0.0f) {
            const float old = s.phase;
            s.phase = inc * sync;
            // Redo this sample's triangle from the restarted phase.
            s.triangle = before;
            s.triangle.phase = inc * sync + inc * 0.25f;
            s.fmTriangle[i] = TriangleSample(s.triangle, inc);
            s.squareRing[r] = s.fmTriangle[i];
            s.pulseLevel = -0.5f;
            s.squareLevel = -0.5f;
            const float jump = old - s.phase;
            const bool upperHalf = old >= 0.5f;
            ForEachTap(s.phase / inc, [&](int q, float b) {
                const int slot = Slot(w + q);
                s.sawRing[slot] += jump * (1.0f - b);
                s.pulseRing[slot] += jump * (1.0f - b);
                s.squareRing[slot] += jump * (upperHalf ? b : 1.0f - b);
            });
        }
        if (wrapped) WrapFall(s, inc, false);
        PulseRise(s, inc);
        s.sawRing[r] += s.phase - 0.5f;
        s.pulseRing[r] += s.pulseLevel;
        s.pulseRing[r] = -s.pulseRing[r];
        s.squareRing[r] *= kSyncedTriangleLevel;
        s.writeIndex = Slot(w + 1);
    }
}

// Only the waves that are on are written; the mix reads the others as +0.
struct Waveforms {
    float saw[kBlockSize];
    float pulse[kBlockSize];
    float triangle[kBlockSize];
    float noise[kBlockSize];
};

// Reads the ring half just written (from the block's first write slot) into
// the four waveforms.
void OutputStage(OscillatorState& s, int32_t start, Waveforms& wave) {
    if (s.sawOn) {
        for (int k = 0; k < kBlockSize; ++k) wave.saw[k] = s.sawRing[Slot(start + k)] * kSawLevel;
    }
    if (s.pulseOn) {
        float y = s.pulseSmooth;
        for (int k = 0; k < kBlockSize; ++k) {
            const float x = s.pulseRing[Slot(start + k)] + s.humTable[k];
            y += (x - y) * s.smooth10k;
            wave.pulse[k] = y * kPulseLevel;
        }
        s.pulseSmooth = y;
    }
    if (s.triangleOn) {
        if (!s.syncedTriangle) {
            // Integrated square, high-passed at 10 Hz and scaled by the
            // frequency (ramped over the block) for a constant level.
            const float g = s.triG;
            const float D = g * g + kHpDamping * g + 1.0f;
            const float rampStep = (s.staticFreq - s.previousStaticFreq) / 32.0f;
            float ramp = s.previousStaticFreq;
            for (int k = 0; k < kBlockSize; ++k) {
                s.triAcc += s.squareRing[Slot(start + k)];
                const float u = s.triAcc + s.triAccPrevious;
                s.triAccPrevious = s.triAcc;
                const float bp =
                    ((u - s.triBp * (g + kHpDamping) - 2.0f * s.triLp) * g + s.triBp) / D;
                const float lp =
                    (((u - s.triLp) * g + 2.0f * s.triBp + kHpDamping * s.triLp) * g + s.triLp) / D;
                const float hp = s.triAcc - kHpDamping * bp - lp;
                s.triBp = bp;
                s.triLp = lp;
                ramp += rampStep;
                wave.triangle[k] = ramp * kTriangleLevelPerHz * hp;
            }
        } else {
            for (int k = 0; k < kBlockSize; ++k) wave.triangle[k] = s.squareRing[Slot(start + k)];
        }
    }
    if (s.noiseOn) {
        for (int k = 0; k < kBlockSize; ++k) {
            const float r = static_cast<float>(dsp::NextRandom());
            const float x = kNoiseStep * r - kNoiseOffset;
            s.noiseSmooth += (x - s.noiseSmooth) * s.smooth10k;
            const float y = s.b0 * s.noiseSmooth + s.b1 * s.noiseX1 + s.b2 * s.noiseX2 -
                            s.a1 * s.noiseY1 - s.a2 * s.noiseY2;
            s.noiseX2 = s.noiseX1;
            s.noiseX1 = s.noiseSmooth;
            s.noiseY2 = s.noiseY1;
            s.noiseY1 = y;
            wave.noise[k] = y * kNoiseLevel;
        }
    }
    s.previousStaticFreq = s.staticFreq;
}

} // namespace

const float* StepTable() {
    return kStepTableData;
}

float DetuneLaw(float x) {
    if (!(x <= 1.0f)) return 0.0f; // beyond the last point (or NaN)
    return kDetuneTable.AtIndex(x * kDetuneSteps);
}

float PulseWidthLaw(float x) {
    return kPulseWidthTable.AtIndex(x * 63.0f);
}

void Init(OscillatorState& state, int32_t voiceIndex) {
    const ParamRecord<kOscParamCount> params = state.params;
    state = OscillatorState{};
    state.params = params;
    state.params.refreshPending = true;
    state.voiceIndex = voiceIndex;
    SetRateCoefficients(state, kInitialRate);
    (void)dsp::NoteFrequencies(); // built here, not on the render thread
    dsp::SeedRandom(dsp::ConstructionSeed());
}

void Rest(OscillatorState& state, float* audio) {
    if (state.params.Refresh()) Derive(state);
    std::fill_n(audio, kBlockSize, 0.0f);
}

// Each lane runs the scalar steps phase += inc, minus 1 once it reaches 1;
// the phases are independent, so grouping them changes no result.
void AdvanceResting(OscillatorState* const* states, int count) {
    for (int first = 0; first < count; first += 4) {
        const int lanes = std::min(4, count - first);
        float phase[4] = {};
        float inc[4] = {};
        for (int l = 0; l < lanes; ++l) {
            const OscillatorState& s = *states[first + l];
            phase[l] = s.phase;
            inc[l] = s.invRate * s.baseFreq;
        }
        const dsp::Lanes step = dsp::Load(inc);
        const dsp::Lanes one = dsp::Splat(1.0f);
        dsp::Lanes p = dsp::Load(phase);
        for (int i = 0; i < kBlockSize; ++i) {
            p = p + step;
            p = dsp::Select(dsp::GreaterEqual(p, one), p - one, p);
        }
        dsp::Store(phase, p);
        for (int l = 0; l < lanes; ++l) states[first + l]->phase = phase[l];
    }
}

int32_t Process(OscillatorState& state, Inputs in, uint64_t, Outputs out, uint64_t,
                const ProcessContext& ctx, bool runAnyway) {
    OscillatorState& s = state;
    if (s.params.Refresh()) Derive(s);
    if (ctx.voiceState == nullptr) return kProcessOk;
    if (s.voiceIndex < 0 || s.voiceIndex >= kVoiceCount) return kProcessMissing;
    if (out == nullptr || out[1] == nullptr) return kProcessMissing;
    float* audio = out[1];

    // An inactive voice keeps its phase running at the base frequency.
    if (!runAnyway && !HasVoice(ctx.voiceState->activeVoices, s.voiceIndex)) {
        std::fill_n(audio, kBlockSize, 0.0f);
        OscillatorState* const one[1] = {&s};
        AdvanceResting(one, 1);
        return kProcessOk;
    }
    if (in == nullptr || in[kOscInPitch] == nullptr || in[kOscInPulseWidth] == nullptr ||
        in[kOscInVolume] == nullptr || in[kOscInVibrato] == nullptr ||
        in[kOscInPitchbend] == nullptr || in[kOscInJitter] == nullptr || out[0] == nullptr)
        return kProcessMissing;

    if (s.keyFollow) {
        const uint32_t key = MessageKey(ctx.voiceState->voiceMessage[s.voiceIndex]);
        s.baseFreq = key >= 12 && key < 140 ? dsp::NoteFrequencies()[key - 12] : 0.0f;
    } else {
        s.baseFreq = kFreeBaseHz;
    }

    if (ctx.sampleRate != s.sampleRate && ctx.sampleRate > 0.0f) {
        s.sampleRate = ctx.sampleRate;
        SetRateCoefficients(s, ctx.sampleRate);
        FillHumTable(s);
    }

    const float* fmActiveIn = in[kOscInFmActive];
    const bool fmActive = fmActiveIn != nullptr && fmActiveIn[0] > 0.0f;

    // Both cores write every sync pulse; the FM triangle only the hard-sync
    // core or an active FM input writes.
    Waveforms wave;
    if (!s.hardSync && !fmActive) std::fill_n(s.fmTriangle, kBlockSize, 0.0f);

    float gain[kBlockSize];
    const float* volumeIn = in[kOscInVolume];
    for (int i = 0; i < kBlockSize; ++i)
        gain[i] = Clamp(volumeIn[i] + s.params[kOscVolume], 0.0f, 1.0f) * kGainScale;

    const int32_t start = s.writeIndex;
    if (s.hardSync)
        HardSyncCore(s, in);
    else
        FreeRunningCore(s, in, fmActive);
    OutputStage(s, start, wave);

    const bool fmTriangle = s.master && s.fmTriangleOn && fmActive;
    if (fmTriangle) {
        for (int i = 0; i < kBlockSize; ++i)
            wave.triangle[i] = s.fmTriangle[i] * kMasterFmTriangleLevel;
    }
    // The waves that are off add +0, as a zero buffer would.
    const bool triangle = s.triangleOn || fmTriangle;
    for (int i = 0; i < kBlockSize; ++i) {
        float sum = triangle ? wave.triangle[i] : 0.0f;
        sum += s.pulseOn ? wave.pulse[i] : 0.0f;
        sum += s.noiseOn ? wave.noise[i] : 0.0f;
        sum += s.sawOn ? wave.saw[i] : 0.0f;
        audio[i] = sum * gain[i];
    }

    float* aux = out[0];
    if (s.master) {
        for (int i = 0; i < kBlockSize; ++i) aux[i] = s.syncPulse[i];
    } else {
        const float scale = s.staticFreq * (1.0f + kOscFmOutScale);
        for (int i = 0; i < kBlockSize; ++i) aux[i] = s.fmTriangle[i] * scale * kAuxFmScale;
    }
    return kProcessOk;
}

} // namespace Norvell::Vantor
