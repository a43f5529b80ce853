#include "processor/modules/vcf.h"

#include "dsp/dsputil.h"
#include "dsp/fastmath.h"
#include "dsp/lanes.h"
#include "processor/modules/voices.h"

#include <algorithm>
#include <cmath>

namespace Norvell::Vantor {

namespace {

using dsp::BreakpointTable;
using dsp::FastPow2;
using dsp::FlushTiny;
using dsp::InputOr0;
using dsp::kSemitone;
using dsp::Lanes;

constexpr float kPi = 3.14159265f;
constexpr float kMaxCutoffHz = 18686.205f;
constexpr float kMinCutoffHz = 17.0f;
constexpr float kBendScale = 0.031746034f; // 2/63
constexpr float kFmScale = 7.0f;
constexpr float kRateUnknown = 44100.0f;
// Below about 39 kHz the 18.7 kHz section corner would pass pi/2 and tan
// would change sign; hold the prewarp angle under it.
constexpr float kMaxPrewarpAngle = 1.5f;

// Leak section: an 8500 Hz corner with fixed damping.
constexpr float kLeakOmega = 26703.54f;
constexpr float kLeakDamping = 2.857143f;

// Cutoff law over 127 control steps, normalised to 1 at the top.
const BreakpointTable<128> kCutoffLaw = BreakpointTable<128>::FromBreakpoints({
    {0, 0.0f},           {10, 0.0000095f},    {20, 0.0002322284f}, {25, 0.00026146870f},
    {30, 0.0012674928f}, {35, 0.0025233906f}, {40, 0.004278765f},  {45, 0.0067218216f},
    {50, 0.00979111f},   {55, 0.014060779f},  {60, 0.019560669f},  {65, 0.027204148f},
    {70, 0.037124366f},  {75, 0.05014566f},   {80, 0.067577764f},  {85, 0.09134807f},
    {90, 0.1238766f},    {95, 0.16367598f},   {100, 0.22037372f},  {105, 0.28846809f},
    {110, 0.3838103f},   {115, 0.50871754f},  {120, 0.67216605f},  {125, 0.88056797f},
    {127, 1.0f},
});

// Resonance law over 63 steps.
const BreakpointTable<64> kResLaw = BreakpointTable<64>::FromBreakpoints({
    {0, 0.01f},
    {10, 0.01f},
    {20, 0.58772874f},
    {30, 1.1012639f},
    {40, 1.9999735f},
    {50, 3.0271499f},
    {60, 3.6690855f},
    {62, 3.8615601f},
    {63, 5.7985077f},
});

// Frequency-dependent compensation, indexed by cutoffNorm * 44.1 (kHz at 44.1 kHz).
// Feedback scale by cutoff, falling towards the top.
const VcfTable kFeedbackScaleFalling = VcfTable::FromValues(
    {3.37f, 3.319f, 3.2f,  3.117f, 3.025f, 2.938f, 2.8566f, 2.775f, 2.71f, 2.655f, 2.6f,  2.562f,
     2.53f, 2.497f, 2.47f, 2.448f, 2.42f,  2.39f,  2.35f,   2.3f,   2.24f, 2.176f, 2.15f, 0.0f});
// Feedback scale by cutoff, peaking in the middle.
const VcfTable kFeedbackScalePeaked = VcfTable::FromValues(
    {3.963f, 4.032f, 4.164f, 4.287f, 4.4f,   4.5f,  4.585f, 4.655f, 4.705f, 4.733f, 4.74f, 4.727f,
     4.692f, 4.638f, 4.567f, 4.48f,  4.384f, 4.28f, 4.17f,  4.05f,  3.94f,  3.82f,  3.71f, 0.0f});
// Feedback rolloff by cutoff in kHz, used by every mode.
const VcfTable kFeedbackRolloff = VcfTable::FromValues(
    {1.0f,  1.0f,  1.0f,  1.0f, 1.0f,  1.0f,  1.0f,  1.0f,  0.995f, 0.99f, 0.985f, 0.98f,
     0.94f, 0.92f, 0.91f, 0.9f, 0.88f, 0.85f, 0.94f, 0.94f, 0.94f,  0.94f, 0.94f,  0.0f});
// Output boost by cutoff, for the steepest highpass and bandpass mixes.
const VcfTable kOutputBoost = VcfTable::FromValues(
    {1.0f,     1.12202f, 1.2735f,  1.41254f, 1.62181f, 1.88365f, 2.23872f, 2.5704f,
     2.98538f, 4.16228f, 5.16228f, 6.16228f, 7.16228f, 8.16228f, 3.16228f, 2.81838f,
     2.51189f, 2.51189f, 2.51189f, 0.0f,     0.0f,     0.0f,     0.0f,     0.0f});
// Unity up to the top entry.
const VcfTable kFlat =
    VcfTable::FromValues({1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f,
                          1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 0.0f});

struct ModeInfo {
    bool firstPoleIsInput;
    float tapMix[4];
    float outputGain; // half the stored per-mode value
    float resCompensation;
    const VcfTable* feedbackScale;
    const VcfTable* outputShape;
};

// L is the lowpass of one cascade pole. The rows of the two state-variable
// modes serve only the block that switches away from them.
const ModeInfo kModes[kVcfModeCount] = {
    // lowpass 6 dB: -L
    {true, {0.0f, -1.6129f, 0.0f, 0.0f}, 0.35f, 0.1f, &kFeedbackScaleFalling, nullptr},
    // lowpass 12 dB, with a trace of 6 dB
    {false, {0.05f, -1.6129f, 0.0f, 0.0f}, 0.375f, 0.08f, &kFeedbackScalePeaked, nullptr},
    // lowpass 18 dB, plus a leak of the unfiltered input
    {true, {0.0f, 0.0f, 0.0f, -1.7857f}, 0.35f, 0.02f, &kFeedbackScaleFalling, nullptr},
    // lowpass 24 dB
    {false, {0.0f, 0.0f, 0.0f, -1.7857f}, 0.35f, 0.1f, &kFeedbackScalePeaked, nullptr},
    // highpass 6 dB: 1 - L
    {true, {1.0f, -1.0f, 0.0f, 0.0f}, 0.35f, 0.08f, &kFeedbackScaleFalling, nullptr},
    // highpass 12 dB: (1 - L)^2
    {true, {1.0f, -2.0f, 1.0f, -0.04f}, 0.435f, 0.1f, &kFeedbackScalePeaked, nullptr},
    // highpass 18 dB: about (1 - L)^3, with the output boost
    {true,
     {0.98039f, -3.0121f, 3.01205f, -1.05f},
     0.435f,
     0.1f,
     &kFeedbackScalePeaked,
     &kOutputBoost},
    // bandpass 6 dB: L (1 - L)
    {false, {1.0f, -1.0f, 0.0f, 0.0f}, 0.4f, 0.1f, &kFeedbackScalePeaked, nullptr},
    // bandpass 12 dB: about -L^2 (1 - L)^2
    {false, {0.0f, -1.0f, 2.0f, -0.91f}, 0.435f, 0.1f, &kFeedbackScalePeaked, &kFlat},
    // two state-variable sections at one corner
    {true, {1.0f, -2.0f, 2.0f, 0.0f}, 0.435f, 0.1f, &kFlat, nullptr},
    // two state-variable sections at spread corners
    {true, {0.9901f, -3.1646f, 5.64612f, -4.01606f}, 0.435f, 0.1f, &kFlat, nullptr},
    // bandpass, 12 dB below and 6 dB above: L (1 - L)^2
    {false, {1.0f, -2.0f, 1.0f, 0.0f}, 0.435f, 0.1f, &kFeedbackScalePeaked, nullptr},
    // bandpass, 18 dB below and 6 dB above: about L (1 - L)^3, with the output boost
    {false,
     {0.95238f, -3.0121f, 3.01205f, -0.8591f},
     0.435f,
     0.1f,
     &kFeedbackScalePeaked,
     &kOutputBoost},
    // notch at the cutoff over a 6 dB lowpass: L ((1 - L)^2 + L^2)
    {false, {1.0f, -2.0f, 2.0f, 0.0f}, 0.435f, 0.1f, &kFeedbackScaleFalling, nullptr},
    // broad bandpass, 6 dB on both sides: L (1 - 3L + 6L^2 - 4L^3)
    {false, {1.0f, -3.0121f, 6.06061f, -4.01606f}, 0.435f, 0.1f, &kFeedbackScalePeaked, nullptr},
};

// 10^y through the engine's base-2 exponential.
float Pow10(float y) {
    return FastPow2(3.3218644f * y);
}

// tan of a prewarped corner, held below pi/2.
float PrewarpedGain(float angle) {
    return std::tan(std::min(angle, kMaxPrewarpAngle));
}

// f of the last distinct input: an input that holds over the block costs one
// evaluation. f depends on its argument only, so reuse is exact.
template <typename F> class PerDistinctInput {
public:
    explicit PerDistinctInput(F f) : f(f) {}
    float operator()(float x) {
        const uint32_t bits = FloatBits(x);
        if (!have || bits != lastBits) {
            lastBits = bits;
            value = f(x);
            have = true;
        }
        return value;
    }

private:
    F f;
    uint32_t lastBits = 0;
    float value = 0.0f;
    bool have = false;
};

void SetSection(VcfSection& s, float g, float k, float gLow, float gBand) {
    s.g = g;
    s.k = k;
    s.d = 1.0f / ((g + k) * g + 1.0f);
    s.gLow = gLow;
    s.gBand = gBand;
}

void ClearSection(VcfSection& s) {
    s.prevIn = s.bp = s.lp = 0.0f;
}

float Tick(VcfSection& s, float v) {
    const float u = v + s.prevIn;
    s.prevIn = v;
    const float bp = ((u - (s.g + s.k) * s.bp - 2.0f * s.lp) * s.g + s.bp) * s.d;
    const float lp = (((u - s.lp) * s.g + 2.0f * s.bp + s.k * s.lp) * s.g + s.lp) * s.d;
    // Decaying states would otherwise crawl through the subnormal range.
    s.bp = FlushTiny(bp);
    s.lp = FlushTiny(lp);
    return (v - s.k * bp - lp) + s.gLow * lp + s.gBand * bp;
}

void SetLeak(VcfState& s) {
    SetSection(s.leak, PrewarpedGain(kLeakOmega * s.invRate), kLeakDamping, 0.0f, 0.0f);
}

void SetRate(VcfState& s, float rate) {
    s.invRate = 1.0f / rate;
    s.resSmooth = 1.0f - std::exp(-100.0f * s.invRate);
    SetLeak(s);
}

void LoadMode(VcfState& s, int32_t mode) {
    const ModeInfo& m = kModes[mode];
    std::fill_n(s.pole, 4, 0.0f);
    s.prevPole4 = 0.0f;
    s.feedbackAvg = 0.0f;
    ClearSection(s.leak);
    ClearSection(s.svfFirst);
    ClearSection(s.svfSecond);
    s.loadedMode = mode;
    s.firstPoleIsInput = m.firstPoleIsInput;
    std::copy_n(m.tapMix, 4, s.tapMix);
    s.outputGain = m.outputGain;
    s.resCompensation = m.resCompensation;
    s.feedbackScale = m.feedbackScale;
    s.invFeedbackScaleFirst = 1.0f / (*m.feedbackScale)[0];
    s.outputShape = m.outputShape;
    if (mode == kVcfModeLowpass18Leak) SetLeak(s);
    s.resGate = 1.0f;
    s.modePending = false;
}

void Derive(VcfState& s) {
    s.mode = StepIndex(s.params[kVcfType], 15.0f, kVcfModeCount - 1);
    if (s.mode != s.loadedMode) {
        // Filter this block with little resonance, reset at its end.
        s.modePending = true;
        s.resGate = 0.01f;
    }
}

bool On(const VcfState& s, VcfParam switchParam) {
    return s.params[switchParam] > 0.0f;
}

// The cutoff modulation input decides for itself and for vibrato, bend, lag
// and FM; the resonance modulation input for itself. Unconnected inputs keep
// the pointers of the last call that connected them.
void TakeInputs(VcfState& s, Inputs in) {
    if (in[kVcfInCutoffMod] != nullptr) {
        s.cutoffMod = in[kVcfInCutoffMod];
        s.vibratoIn = in[kVcfInVibrato];
        s.bendIn = in[kVcfInPitchbend];
        s.lagIn = in[kVcfInLag];
        s.fmIn = in[kVcfInFm];
    }
    if (in[kVcfInResMod] != nullptr) s.resMod = in[kVcfInResMod];
}

// The two preparation steps inline their table reads (flatten): the reads sit
// in the per-sample loops, and out-of-line copies of the 64- and 128-entry
// lookups would be folded together by g++ 12, which then reports a false
// array-bounds error.

// Uses cutoffHz and cutoffNorm of the previous block.
[[gnu::flatten]] void ResonanceStep(VcfState& s) {
    const float target = s.params[kVcfRes] * s.resGate;
    for (int i = 0; i < kBlockSize; ++i) {
        s.resState += (target - s.resState) * s.resSmooth;
        s.resValue[i] = s.resState;
    }
    if (s.resMod != nullptr) {
        float* mod = s.resMod;
        for (int i = 0; i < kBlockSize; ++i) {
            s.resModState += (mod[i] - s.resModState) * 0.002f;
            mod[i] = s.resModState;
        }
        for (int i = 0; i < kBlockSize; ++i)
            s.resValue[i] = std::clamp(s.resValue[i] + 2.0f * mod[i], 0.0f, 1.0f);
    } else {
        for (float& r : s.resValue) r = std::clamp(r, 0.0f, 1.0f);
    }
    const VcfTable& scale = *s.feedbackScale;
    PerDistinctInput resLaw([](float r) { return kResLaw.AtIndex(63.0f * r); });
    PerDistinctInput scaleAt([&scale](float norm) { return scale.AtIndex(norm * 44.1f); });
    PerDistinctInput rolloffAt([](float hz) { return kFeedbackRolloff.AtIndex(hz * 0.001f); });
    for (int i = 0; i < kBlockSize; ++i) {
        s.resValue[i] = resLaw(s.resValue[i]);
        s.feedbackGain[i] = s.resValue[i] * scaleAt(s.cutoffNorm[i]) * s.invFeedbackScaleFirst *
                            rolloffAt(s.cutoffHz[i]);
    }
}

[[gnu::flatten]] void CutoffStep(VcfState& s) {
    float target = s.params[kVcfCutoff];
    if (On(s, kVcfPitchbend)) target += InputOr0(s.bendIn, 0) * kBendScale;
    if (On(s, kVcfVibrato)) target += InputOr0(s.vibratoIn, 0) * kBendScale;
    if (On(s, kVcfLag)) target += InputOr0(s.lagIn, 0);

    // Glide whose speed grows with the distance still to go.
    const float invRate = s.invRate;
    PerDistinctInput glideStep(
        [invRate](float distance) { return 1.0f - std::exp(-distance * 10000.0f * invRate); });
    float control[kBlockSize];
    for (int i = 0; i < kBlockSize; ++i) {
        const float a = glideStep(std::fabs(s.cutoffState - target));
        s.cutoffState += (target - s.cutoffState) * a;
        control[i] = s.cutoffState;
    }
    if (s.cutoffMod != nullptr) {
        for (int i = 0; i < kBlockSize; ++i)
            control[i] = std::clamp(control[i] + s.cutoffMod[i], 0.0f, 1.0f);
    } else {
        for (float& c : control) c = std::clamp(c, 0.0f, 1.0f);
    }

    const float tune =
        FastPow2(kSemitone * ((s.tuning.fineTune - 0.5f) + (s.tuning.voiceDetune - 0.5f) +
                              60.0f * s.tuning.voiceTranspose - 36.0f));
    const bool keyFollow = On(s, kVcfKeyboardFollow);
    const float keyFreq = s.keyFreq;
    PerDistinctInput baseHz([keyFollow, keyFreq](float c) {
        const float steps = 127.0f * c;
        return keyFollow ? keyFreq * FastPow2((steps - 8.0f) * kSemitone)
                         : kCutoffLaw.AtIndex(steps) * 7514.9175f + 17.0f;
    });
    for (int i = 0; i < kBlockSize; ++i) {
        float f = baseHz(control[i]) * tune;
        if (s.fmIn != nullptr) f += s.fmIn[i] * kFmScale * 5000.0f;
        f = std::clamp(f, kMinCutoffHz, kMaxCutoffHz);
        // High resonance pulls the cutoff down by up to about 10.9 %.
        f *= 1.0f - 0.05627411f * (std::clamp(s.resValue[i], 3.86156f, 5.7985077f) - 3.86156f);
        s.cutoffHz[i] = f;
        s.cutoffNorm[i] = f * s.invRate;
    }
}

// The cascades of up to four voices, one per lane. Each lane runs the scalar
// arithmetic of one voice in the same order, so its bytes are that voice's.
struct CascadeLanes {
    Lanes pole[4];
    Lanes prevPole4;
    Lanes feedbackAvg;
    Lanes firstPoleIsInput; // mask
    Lanes tapMix[4];
};

// Cubic soft clip, monotonic and 1 at |v| = 3; the pre-clamp to 3 keeps huge
// or NaN arguments (NaN clamps to -3) from turning into NaN and changes the
// result by rounding only.
[[gnu::always_inline]] inline Lanes SoftClip(Lanes v) {
    const Lanes w = dsp::MinOr(dsp::MaxOr(v, dsp::Splat(-3.0f)), dsp::Splat(3.0f));
    const Lanes w2 = w * w;
    const Lanes r = w * (w2 + dsp::Splat(27.0f)) / (dsp::Splat(9.0f) * w2 + dsp::Splat(27.0f));
    return dsp::MaxOr(dsp::MinOr(r, dsp::Splat(1.0f)), dsp::Splat(-1.0f));
}

// One pass of the driven cascade at twice the sample rate.
[[gnu::always_inline]] inline Lanes CascadeStep(CascadeLanes& c, Lanes drive, Lanes k, Lanes a) {
    const Lanes fb = SoftClip(k * c.feedbackAvg * dsp::Splat(0.2f) + dsp::Splat(0.012f));
    const Lanes u = dsp::Splat(5.0f) * drive - dsp::Splat(5.0f) * fb + dsp::Splat(0.06f);
    c.pole[0] = dsp::Select(c.firstPoleIsInput, u, c.pole[0] + (u - c.pole[0]) * a);
    c.pole[1] = c.pole[1] + (c.pole[0] - c.pole[1]) * a;
    c.pole[2] = c.pole[2] + (c.pole[1] - c.pole[2]) * a;
    c.pole[3] = c.pole[3] + (c.pole[2] - c.pole[3]) * a;
    for (Lanes& p : c.pole) p = dsp::FlushSubnormal(p);
    c.feedbackAvg = (c.pole[3] + c.prevPole4) * dsp::Splat(0.5f);
    c.prevPole4 = c.pole[3];
    return c.tapMix[0] * c.pole[0] + c.tapMix[1] * c.pole[1] + c.tapMix[2] * c.pole[2] +
           c.tapMix[3] * c.pole[3];
}

// Cascades of four voices: their inputs, lane-major (unused lanes hold 0),
// their states in lanes, and their outputs.
struct CascadeGroup {
    alignas(16) float x[4][kBlockSize];
    alignas(16) float poleCoeff[4][kBlockSize];
    alignas(16) float feedback[4][kBlockSize];
    alignas(16) float gainComp[4][kBlockSize];
    alignas(16) float out[4][kBlockSize];
    CascadeLanes c;
};

// Sample-major view of four lane-major rows at samples i..i+3.
void LoadColumns(const float (&rows)[4][kBlockSize], int i, Lanes (&columns)[4]) {
    for (int lane = 0; lane < 4; ++lane) columns[lane] = dsp::Load(&rows[lane][i]);
    dsp::Transpose(columns[0], columns[1], columns[2], columns[3]);
}

void Gather(CascadeGroup& g, VcfState* const* voices, const float* const* x, int count) {
    float pole[4][4] = {};
    float prev[4] = {};
    float avg[4] = {};
    float mix[4][4] = {};
    bool tap[4] = {};
    for (int lane = 0; lane < count; ++lane) {
        const VcfState& s = *voices[lane];
        std::copy_n(x[lane], kBlockSize, g.x[lane]);
        std::copy_n(s.feedbackGain, kBlockSize, g.feedback[lane]);
        PerDistinctInput poleCoeff([](float norm) { return 1.0f - std::exp(-kPi * norm); });
        for (int i = 0; i < kBlockSize; ++i) {
            g.poleCoeff[lane][i] = poleCoeff(s.cutoffNorm[i]);
            g.gainComp[lane][i] = (1.0f - s.resValue[i] * s.resCompensation) * s.outputGain;
        }
        for (int t = 0; t < 4; ++t) {
            pole[t][lane] = s.pole[t];
            mix[t][lane] = s.tapMix[t];
        }
        prev[lane] = s.prevPole4;
        avg[lane] = s.feedbackAvg;
        tap[lane] = s.firstPoleIsInput;
    }
    for (int lane = count; lane < 4; ++lane) {
        for (auto* rows : {&g.x, &g.poleCoeff, &g.feedback, &g.gainComp})
            std::fill_n((*rows)[lane], kBlockSize, 0.0f);
    }
    for (int t = 0; t < 4; ++t) {
        g.c.pole[t] = dsp::Load(pole[t]);
        g.c.tapMix[t] = dsp::Load(mix[t]);
    }
    g.c.prevPole4 = dsp::Load(prev);
    g.c.feedbackAvg = dsp::Load(avg);
    g.c.firstPoleIsInput = dsp::MaskWhere(tap[0], tap[1], tap[2], tap[3]);
}

void Scatter(CascadeGroup& g, VcfState* const* voices, float* const* y, int count) {
    float pole[4][4];
    float prev[4];
    float avg[4];
    for (int t = 0; t < 4; ++t) dsp::Store(pole[t], g.c.pole[t]);
    dsp::Store(prev, g.c.prevPole4);
    dsp::Store(avg, g.c.feedbackAvg);
    for (int lane = 0; lane < count; ++lane) {
        VcfState& s = *voices[lane];
        for (int t = 0; t < 4; ++t) s.pole[t] = pole[t][lane];
        s.prevPole4 = prev[lane];
        s.feedbackAvg = avg[lane];
        std::copy_n(g.out[lane], kBlockSize, y[lane]);
    }
}

inline constexpr int kMaxGroups = (kVoiceCount + 3) / 4;

// Up to kMaxGroups groups step through the block side by side: their chains
// are independent, so each one's latency hides behind the others' work.
void RunCascades(VcfState* const* voices, const float* const* x, float* const* y, int count) {
    const int groups = (count + 3) / 4;
    CascadeGroup g[kMaxGroups];
    for (int k = 0; k < groups; ++k)
        Gather(g[k], voices + 4 * k, x + 4 * k, std::min(4, count - 4 * k));
    for (int i = 0; i < kBlockSize; i += 4) {
        Lanes xs[kMaxGroups][4], as[kMaxGroups][4], ks[kMaxGroups][4], gs[kMaxGroups][4];
        Lanes ys[kMaxGroups][4];
        for (int k = 0; k < groups; ++k) {
            LoadColumns(g[k].x, i, xs[k]);
            LoadColumns(g[k].poleCoeff, i, as[k]);
            LoadColumns(g[k].feedback, i, ks[k]);
            LoadColumns(g[k].gainComp, i, gs[k]);
        }
        for (int j = 0; j < 4; ++j) {
            for (int k = 0; k < groups; ++k) {
                const Lanes kj = ks[k][j];
                const Lanes drive = SoftClip((kj + dsp::Splat(1.0f)) * xs[k][j] * dsp::Splat(0.2f));
                const Lanes first = CascadeStep(g[k].c, drive, kj, as[k][j]);
                const Lanes second = CascadeStep(g[k].c, drive, kj, as[k][j]);
                ys[k][j] = (first + second) * gs[k][j];
            }
        }
        for (int k = 0; k < groups; ++k) {
            dsp::Transpose(ys[k][0], ys[k][1], ys[k][2], ys[k][3]);
            for (int lane = 0; lane < 4; ++lane) dsp::Store(&g[k].out[lane][i], ys[k][lane]);
        }
    }
    for (int k = 0; k < groups; ++k)
        Scatter(g[k], voices + 4 * k, y + 4 * k, std::min(4, count - 4 * k));
}

// The sections' coefficients follow the corner and the resonance; a sample
// that repeats both keeps the coefficients of the one before.
bool CornerChanged(const VcfState& s, int i) {
    return i == 0 || FloatBits(s.cutoffHz[i]) != FloatBits(s.cutoffHz[i - 1]) ||
           FloatBits(s.resValue[i]) != FloatBits(s.resValue[i - 1]);
}

// Both sections at one corner.
void RunTwinSvfTracked(VcfState& s, const float* x, float* y) {
    for (int i = 0; i < kBlockSize; ++i) {
        if (CornerChanged(s, i)) {
            const float fc = s.cutoffHz[i];
            const float q = s.resValue[i] * 0.25f;
            const float g = PrewarpedGain(
                kPi * std::clamp((0.2f * q + 1.0f) * fc, 0.0f, kMaxCutoffHz) * s.invRate);
            const float e = 7.0f * q + (1.0f - q);
            const float k2 = 1.0f / (1.4f * q + 0.6f * (1.0f - q));
            SetSection(s.svfFirst, g, 0.5f / (0.3f * (1.0f - q) + q), Pow10(-0.05f * e),
                       Pow10(-0.025f * e) * 0.033333335f);
            SetSection(s.svfSecond, g, k2, Pow10(-0.035f * e), Pow10(-0.0175f * e) * k2);
        }
        const float y1 = Tick(s.svfFirst, x[i]) / s.svfFirst.gLow;
        y[i] = Tick(s.svfSecond, y1) / s.svfSecond.gLow * 0.63f;
    }
}

// The first section at 1.6 times the corner, the second at 1.2 times.
void RunTwinSvfSpread(VcfState& s, const float* x, float* y) {
    const float gLow1 = Pow10(0.05f);
    const float gBand1 = Pow10(0.025f) * 0.033333335f;
    float outGain = 1.0f;
    for (int i = 0; i < kBlockSize; ++i) {
        if (CornerChanged(s, i)) {
            const float fc = s.cutoffHz[i];
            const float q = s.resValue[i] * 0.25f;
            outGain = Pow10(-0.35f * q);
            const float w = std::clamp(1.0f - fc * 0.000058866957f * q, 0.06f, 1.0f);
            SetSection(s.svfFirst,
                       PrewarpedGain(kPi * std::clamp(1.6f * fc, 0.0f, 14300.0f) * s.invRate),
                       0.5f / ((0.5f * (1.0f - q) + 2.5f * q) * w), gLow1, gBand1 / w);
            const float e2 = -0.15f * (1.0f - q) - 1.0500001f * q;
            SetSection(s.svfSecond,
                       PrewarpedGain(kPi * std::clamp(1.2f * fc, 0.0f, kMaxCutoffHz) * s.invRate),
                       2.2222223f, Pow10(e2), Pow10(e2 / 2.0f) * 2.0f);
        }
        const float y1 = Tick(s.svfFirst, x[i]) * outGain / gLow1;
        y[i] = Tick(s.svfSecond, y1) / s.svfSecond.gLow * 0.63f;
    }
}

// Everything before the filtering itself. False when the call ends here,
// with its status.
bool Prepare(VcfState& s, Inputs in, Outputs out, const ProcessContext& ctx, bool runAnyway,
             int32_t& status) {
    if (s.params.Refresh()) Derive(s);
    status = kProcessOk;
    const VoiceState* voices = ctx.voiceState;
    if (voices == nullptr)
        status = kProcessUnusable;
    else if (s.voiceIndex < 0 || s.voiceIndex >= kVoiceCount)
        status = kProcessMissing;
    else if (out == nullptr || out[0] == nullptr)
        status = kProcessMissing;
    if (status != kProcessOk) return false;
    if (!runAnyway && !HasVoice(voices->activeVoices, s.voiceIndex)) {
        std::fill_n(out[0], kBlockSize, 0.0f);
        return false;
    }

    uint32_t note = 0;
    const uint32_t message = voices->voiceMessage[s.voiceIndex];
    const uint32_t kind = MessageKind(message);
    if (On(s, kVcfKeyboardFollow) && (kind == 0x8 || kind == 0x9))
        note = std::min(MessageKey(message), 127u);
    s.keyFreq = dsp::NoteFrequencies()[note];

    if (in == nullptr || in[kVcfInAudio] == nullptr) {
        status = kProcessMissing;
        return false;
    }
    TakeInputs(s, in);
    const float rate = ctx.sampleRate;
    if (rate != s.sampleRate && rate > 0.0f && std::isfinite(rate)) {
        s.sampleRate = rate;
        SetRate(s, rate);
    }

    ResonanceStep(s);
    CutoffStep(s);
    return true;
}

bool IsCascade(int32_t mode) {
    return mode != kVcfModeTwinSvfTracked && mode != kVcfModeTwinSvfSpread;
}

// The structure of the mode now selected ran with the coefficients of the
// loaded one; the new mode is loaded after it.
void Finish(VcfState& s, const float* x, float* y) {
    if (s.modePending) LoadMode(s, s.mode);
    if (s.loadedMode == kVcfModeLowpass18Leak) {
        const float leakGain = FastPow2(-1.9f * 3.3218644f); // about 0.0126
        for (int i = 0; i < kBlockSize; ++i) y[i] += Tick(s.leak, x[i]) * leakGain;
    }
    if (s.outputShape != nullptr) {
        PerDistinctInput shape([&s](float norm) { return s.outputShape->AtIndex(norm * 44.1f); });
        for (int i = 0; i < kBlockSize; ++i) y[i] *= shape(s.cutoffNorm[i]);
    }
}

// Filters the calls whose preparation went through; the cascades of up to
// twelve voices run together.
class CascadeQueue {
public:
    void Add(VcfState& s, const float* x, float* y) {
        voices[count] = &s;
        xs[count] = x;
        ys[count] = y;
        if (++count == kCapacity) Run();
    }
    void Run() {
        if (count == 0) return;
        RunCascades(voices, xs, ys, count);
        for (int lane = 0; lane < count; ++lane) Finish(*voices[lane], xs[lane], ys[lane]);
        count = 0;
    }

private:
    static constexpr int kCapacity = 4 * kMaxGroups;
    VcfState* voices[kCapacity] = {};
    const float* xs[kCapacity] = {};
    float* ys[kCapacity] = {};
    int count = 0;
};

void Filter(VcfState& s, const float* x, float* y, CascadeQueue& cascades) {
    if (IsCascade(s.mode)) {
        cascades.Add(s, x, y);
        return;
    }
    if (s.mode == kVcfModeTwinSvfTracked)
        RunTwinSvfTracked(s, x, y);
    else
        RunTwinSvfSpread(s, x, y);
    Finish(s, x, y);
}

} // namespace

void Init(VcfState& state, int32_t voiceIndex) {
    // Bindings are made by the registry and survive a re-initialisation.
    const ParamRecord<kVcfParamCount> params = state.params;
    state = VcfState{};
    state.params = params;
    state.voiceIndex = voiceIndex;
    SetRate(state, kRateUnknown);
    state.modePending = true;
    LoadMode(state, 0);
}

int32_t Process(VcfState& state, Inputs in, uint64_t, Outputs out, uint64_t,
                const ProcessContext& ctx, bool runAnyway) {
    int32_t status = kProcessOk;
    if (!Prepare(state, in, out, ctx, runAnyway, status)) return status;
    CascadeQueue cascades;
    Filter(state, in[kVcfInAudio], out[0], cascades);
    cascades.Run();
    return kProcessOk;
}

void ProcessVoices(const VcfCall* calls, int count, const ProcessContext& ctx) {
    CascadeQueue cascades;
    for (int c = 0; c < count; ++c) {
        const VcfCall& call = calls[c];
        int32_t status = kProcessOk;
        if (Prepare(*call.state, call.in, call.out, ctx, call.runAnyway, status))
            Filter(*call.state, call.in[kVcfInAudio], call.out[0], cascades);
    }
    cascades.Run();
}

} // namespace Norvell::Vantor
