#include "processor/modules/vcf.h"

#include "dsp/dsputil.h"
#include "dsp/fastmath.h"
#include "processor/modules/voices.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

namespace Norvell::Vantor {

namespace {

using dsp::BreakpointTable;
using dsp::FastPow2;
using dsp::FlushTiny;
using dsp::InputOr0;
using dsp::kSemitone;

constexpr float kPi = 3.14159265f;
constexpr float kMaxCutoffHz = 18686.205f;
constexpr float kMinCutoffHz = 17.0f;
constexpr float kBendScale = 0.031746034f; // 2/63
constexpr float kRateUnknown = 44100.0f;
// Below about 39 kHz the 18.7 kHz section corner would pass pi/2 and tan
// would change sign; hold the prewarp angle under it.
constexpr float kMaxPrewarpAngle = 1.5f;

// Leak section of mode 2: an 8500 Hz corner with fixed damping.
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

// Frequency-dependent compensation, indexed in kHz at 44.1 kHz.
const VcfTable kTableA = VcfTable::FromValues(
    {3.37f, 3.319f, 3.2f,  3.117f, 3.025f, 2.938f, 2.8566f, 2.775f, 2.71f, 2.655f, 2.6f,  2.562f,
     2.53f, 2.497f, 2.47f, 2.448f, 2.42f,  2.39f,  2.35f,   2.3f,   2.24f, 2.176f, 2.15f, 0.0f});
const VcfTable kTableB = VcfTable::FromValues(
    {3.963f, 4.032f, 4.164f, 4.287f, 4.4f,   4.5f,  4.585f, 4.655f, 4.705f, 4.733f, 4.74f, 4.727f,
     4.692f, 4.638f, 4.567f, 4.48f,  4.384f, 4.28f, 4.17f,  4.05f,  3.94f,  3.82f,  3.71f, 0.0f});
const VcfTable kTableF = VcfTable::FromValues(
    {1.0f,  1.0f,  1.0f,  1.0f, 1.0f,  1.0f,  1.0f,  1.0f,  0.995f, 0.99f, 0.985f, 0.98f,
     0.94f, 0.92f, 0.91f, 0.9f, 0.88f, 0.85f, 0.94f, 0.94f, 0.94f,  0.94f, 0.94f,  0.0f});
const VcfTable kTableE = VcfTable::FromValues(
    {1.0f,     1.12202f, 1.2735f,  1.41254f, 1.62181f, 1.88365f, 2.23872f, 2.5704f,
     2.98538f, 4.16228f, 5.16228f, 6.16228f, 7.16228f, 8.16228f, 3.16228f, 2.81838f,
     2.51189f, 2.51189f, 2.51189f, 0.0f,     0.0f,     0.0f,     0.0f,     0.0f});
const VcfTable kTableU =
    VcfTable::FromValues({1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f,
                          1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 0.0f});

struct ModeInfo {
    int32_t inputTap;
    float c1, c2, c3, c4;
    float g; // output gain, half the stored per-mode value
    float r; // resonance compensation
    const VcfTable* t1;
    const VcfTable* t3;
};

const ModeInfo kModes[kVcfModeCount] = {
    {1, 0.0f, -1.6129f, 0.0f, 0.0f, 0.35f, 0.1f, &kTableA, nullptr},
    {0, 0.05f, -1.6129f, 0.0f, 0.0f, 0.375f, 0.08f, &kTableB, nullptr},
    {1, 0.0f, 0.0f, 0.0f, -1.7857f, 0.35f, 0.02f, &kTableA, nullptr},
    {0, 0.0f, 0.0f, 0.0f, -1.7857f, 0.35f, 0.1f, &kTableB, nullptr},
    {1, 1.0f, -1.0f, 0.0f, 0.0f, 0.35f, 0.08f, &kTableA, nullptr},
    {1, 1.0f, -2.0f, 1.0f, -0.04f, 0.435f, 0.1f, &kTableB, nullptr},
    {1, 0.98039f, -3.0121f, 3.01205f, -1.05f, 0.435f, 0.1f, &kTableB, &kTableE},
    {0, 1.0f, -1.0f, 0.0f, 0.0f, 0.4f, 0.1f, &kTableB, nullptr},
    {0, 0.0f, -1.0f, 2.0f, -0.91f, 0.435f, 0.1f, &kTableB, &kTableU},
    {1, 1.0f, -2.0f, 2.0f, 0.0f, 0.435f, 0.1f, &kTableU, nullptr},
    {1, 0.9901f, -3.1646f, 5.64612f, -4.01606f, 0.435f, 0.1f, &kTableU, nullptr},
    {0, 1.0f, -2.0f, 1.0f, 0.0f, 0.435f, 0.1f, &kTableB, nullptr},
    {0, 0.95238f, -3.0121f, 3.01205f, -0.8591f, 0.435f, 0.1f, &kTableB, &kTableE},
    {0, 1.0f, -2.0f, 2.0f, 0.0f, 0.435f, 0.1f, &kTableA, nullptr},
    {0, 1.0f, -3.0121f, 6.06061f, -4.01606f, 0.435f, 0.1f, &kTableB, nullptr},
};

float FlushSubnormal(float v) {
    return std::fabs(v) < FLT_MIN ? 0.0f : v;
}

// 10^y through the engine's base-2 exponential.
float Pow10(float y) {
    return FastPow2(3.3218644f * y);
}

// tan of a prewarped corner, held below pi/2.
float PrewarpedGain(float angle) {
    return std::tan(std::min(angle, kMaxPrewarpAngle));
}

// Cubic soft clip, monotonic and 1 at |v| = 3; the pre-clamp to 3 keeps huge
// or NaN arguments from turning into NaN and changes the result by rounding only.
float SoftClip(float v) {
    return std::clamp(dsp::SoftSaturate(std::fmin(std::fmax(v, -3.0f), 3.0f)), -1.0f, 1.0f);
}

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
    s.s1 = s.s2 = s.s3 = s.s4 = 0.0f;
    s.prevS4 = 0.0f;
    s.fbAvg = 0.0f;
    ClearSection(s.leak);
    ClearSection(s.section1);
    ClearSection(s.section2);
    s.loadedMode = mode;
    s.inputTap = m.inputTap;
    s.c1 = m.c1;
    s.c2 = m.c2;
    s.c3 = m.c3;
    s.c4 = m.c4;
    s.outputGain = m.g;
    s.resCompensation = m.r;
    s.t1 = m.t1;
    s.t2 = &kTableF;
    s.t3 = m.t3;
    s.invT1First = 1.0f / (*m.t1)[0];
    if (mode == 2) SetLeak(s);
    s.resGate = 1.0f;
    s.modePending = false;
}

void RefreshParams(VcfState& s) {
    if (!s.params.Refresh()) return;
    const auto& p = s.params;
    s.cutoffTarget = p[kVcfCutoff];
    s.resTarget = p[kVcfRes];
    s.mode = StepIndex(p[kVcfType], 15.0f, kVcfModeCount - 1);
    s.keyFollow = p[kVcfKeyboardFollow] > 0.0f;
    s.lagOn = p[kVcfLag] > 0.0f;
    s.bendOn = p[kVcfPitchbend] > 0.0f;
    s.vibratoOn = p[kVcfVibrato] > 0.0f;
    if (s.mode != s.loadedMode) {
        // Filter this block with little resonance, reset at its end.
        s.modePending = true;
        s.resGate = 0.01f;
    }
}

// Input 1 decides for 1, 3, 4, 5 and 6; input 2 for itself. Unconnected
// inputs keep the pointers of the last call that connected them.
void TakeInputs(VcfState& s, Inputs in) {
    if (in[1] != nullptr) {
        s.cutoffMod = in[1];
        s.vibratoIn = in[3];
        s.bendIn = in[4];
        s.lagIn = in[5];
        s.fmIn = in[6];
    }
    if (in[2] != nullptr) s.resMod = in[2];
}

// The two preparation steps inline their table reads (flatten): the reads sit
// in the per-sample loops, and out-of-line copies of the 64- and 128-entry
// lookups would be folded together by g++ 12, which then reports a false
// array-bounds error.

// Uses cutoffHz and cutoffNorm of the previous block.
[[gnu::flatten]] void ResonanceStep(VcfState& s) {
    const float target = s.resTarget * s.resGate;
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
    for (int i = 0; i < kBlockSize; ++i) {
        s.resValue[i] = kResLaw.AtIndex(63.0f * s.resValue[i]);
        s.feedbackGain[i] = s.resValue[i] * s.t1->AtIndex(s.cutoffNorm[i] * 44.1f) * s.invT1First *
                            s.t2->AtIndex(s.cutoffHz[i] * 0.001f);
    }
}

[[gnu::flatten]] void CutoffStep(VcfState& s) {
    float target = s.cutoffTarget;
    if (s.bendOn) target += InputOr0(s.bendIn, 0) * kBendScale;
    if (s.vibratoOn) target += InputOr0(s.vibratoIn, 0) * kBendScale;
    if (s.lagOn) target += InputOr0(s.lagIn, 0);

    // Glide whose speed grows with the distance still to go.
    for (int i = 0; i < kBlockSize; ++i) {
        const float a = 1.0f - std::exp(-std::fabs(s.cutoffState - target) * 10000.0f * s.invRate);
        s.cutoffState += (target - s.cutoffState) * a;
        s.cutoffControl[i] = s.cutoffState;
    }
    if (s.cutoffMod != nullptr) {
        for (int i = 0; i < kBlockSize; ++i)
            s.cutoffControl[i] = std::clamp(s.cutoffControl[i] + s.cutoffMod[i], 0.0f, 1.0f);
    } else {
        for (float& c : s.cutoffControl) c = std::clamp(c, 0.0f, 1.0f);
    }

    const float tune =
        FastPow2(kSemitone * ((s.tuning.fineTune - 0.5f) + (s.tuning.voiceDetune - 0.5f) +
                              60.0f * s.tuning.voiceTranspose - 36.0f));
    for (int i = 0; i < kBlockSize; ++i) {
        const float steps = 127.0f * s.cutoffControl[i];
        const float f0 = s.keyFollow ? s.keyFreq * FastPow2((steps - 8.0f) * kSemitone)
                                     : kCutoffLaw.AtIndex(steps) * 7514.9175f + 17.0f;
        float f = f0 * tune;
        if (s.fmIn != nullptr) f += s.fmIn[i] * s.fmScale * 5000.0f;
        f = std::clamp(f, kMinCutoffHz, kMaxCutoffHz);
        // High resonance pulls the cutoff down by up to about 10.9 %.
        f *= 1.0f - 0.05627411f * (std::clamp(s.resValue[i], 3.86156f, 5.7985077f) - 3.86156f);
        s.cutoffHz[i] = f;
        s.cutoffNorm[i] = f * s.invRate;
    }
}

// One pass of the driven cascade at twice the sample rate.
float CascadeStep(VcfState& s, float drive, float k, float a) {
    const float fb = SoftClip(k * s.fbAvg * 0.2f + 0.012f);
    const float u = 5.0f * drive - 5.0f * fb + 0.06f;
    s.s1 = s.inputTap == 1 ? u : s.s1 + (u - s.s1) * a;
    s.s2 = s.s2 + (s.s1 - s.s2) * a;
    s.s3 = s.s3 + (s.s2 - s.s3) * a;
    s.s4 = s.s4 + (s.s3 - s.s4) * a;
    s.s1 = FlushSubnormal(s.s1);
    s.s2 = FlushSubnormal(s.s2);
    s.s3 = FlushSubnormal(s.s3);
    s.s4 = FlushSubnormal(s.s4);
    s.fbAvg = (s.s4 + s.prevS4) * 0.5f;
    s.prevS4 = s.s4;
    return s.c1 * s.s1 + s.c2 * s.s2 + s.c3 * s.s3 + s.c4 * s.s4;
}

void RunCascade(VcfState& s, const float* x, float* y) {
    for (int i = 0; i < kBlockSize; ++i) {
        const float a = 1.0f - std::exp(-kPi * s.cutoffNorm[i]);
        const float gainComp = (1.0f - s.resValue[i] * s.resCompensation) * s.outputGain;
        const float k = s.feedbackGain[i];
        const float drive = SoftClip((k + 1.0f) * x[i] * 0.2f);
        const float first = CascadeStep(s, drive, k, a);
        const float second = CascadeStep(s, drive, k, a);
        y[i] = (first + second) * gainComp;
    }
}

void RunMode9(VcfState& s, const float* x, float* y) {
    for (int i = 0; i < kBlockSize; ++i) {
        const float fc = s.cutoffHz[i];
        const float q = s.resValue[i] * 0.25f;
        const float g =
            PrewarpedGain(kPi * std::clamp((0.2f * q + 1.0f) * fc, 0.0f, kMaxCutoffHz) * s.invRate);
        const float e = 7.0f * q + (1.0f - q);
        const float k2 = 1.0f / (1.4f * q + 0.6f * (1.0f - q));
        SetSection(s.section1, g, 0.5f / (0.3f * (1.0f - q) + q), Pow10(-0.05f * e),
                   Pow10(-0.025f * e) * 0.033333335f);
        SetSection(s.section2, g, k2, Pow10(-0.035f * e), Pow10(-0.0175f * e) * k2);
        const float y1 = Tick(s.section1, x[i]) / s.section1.gLow;
        y[i] = Tick(s.section2, y1) / s.section2.gLow * 0.63f;
    }
}

void RunMode10(VcfState& s, const float* x, float* y) {
    const float gLow1 = Pow10(0.05f);
    const float gBand1 = Pow10(0.025f) * 0.033333335f;
    for (int i = 0; i < kBlockSize; ++i) {
        const float fc = s.cutoffHz[i];
        const float q = s.resValue[i] * 0.25f;
        const float outGain = Pow10(-0.35f * q);
        const float w = std::clamp(1.0f - fc * 0.000058866957f * q, 0.06f, 1.0f);
        SetSection(s.section1,
                   PrewarpedGain(kPi * std::clamp(1.6f * fc, 0.0f, 14300.0f) * s.invRate),
                   0.5f / ((0.5f * (1.0f - q) + 2.5f * q) * w), gLow1, gBand1 / w);
        const float e2 = -0.15f * (1.0f - q) - 1.0500001f * q;
        SetSection(s.section2,
                   PrewarpedGain(kPi * std::clamp(1.2f * fc, 0.0f, kMaxCutoffHz) * s.invRate),
                   2.2222223f, Pow10(e2), Pow10(e2 / 2.0f) * 2.0f);
        const float y1 = Tick(s.section1, x[i]) * outGain / gLow1;
        y[i] = Tick(s.section2, y1) / s.section2.gLow * 0.63f;
    }
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
    RefreshParams(state);
    const VoiceState* voices = ctx.voiceState;
    if (voices == nullptr) return kProcessUnusable;
    if (state.voiceIndex < 0 || state.voiceIndex >= kVoiceCount) return kProcessMissing;
    if (out == nullptr || out[0] == nullptr) return kProcessMissing;
    if (!runAnyway && !HasVoice(voices->activeVoices, state.voiceIndex)) {
        std::fill_n(out[0], kBlockSize, 0.0f);
        return kProcessOk;
    }

    uint32_t note = 0;
    const uint32_t message = voices->voiceMessage[state.voiceIndex];
    const uint32_t kind = MessageKind(message);
    if (state.keyFollow && (kind == 0x8 || kind == 0x9)) note = std::min(MessageKey(message), 127u);
    state.keyFreq = dsp::NoteFrequencies()[note];

    if (in == nullptr || in[0] == nullptr) return kProcessMissing;
    TakeInputs(state, in);
    const float rate = ctx.sampleRate;
    if (rate != state.sampleRate && rate > 0.0f && std::isfinite(rate)) {
        state.sampleRate = rate;
        SetRate(state, rate);
    }

    RefreshParams(state);
    ResonanceStep(state);
    CutoffStep(state);

    // Structure of the mode now selected, coefficients of the loaded one.
    const float* x = in[0];
    float* y = out[0];
    if (state.mode == 9)
        RunMode9(state, x, y);
    else if (state.mode == 10)
        RunMode10(state, x, y);
    else
        RunCascade(state, x, y);

    if (state.modePending) LoadMode(state, state.mode);

    if (state.loadedMode == 2) {
        const float leakGain = FastPow2(-1.9f * 3.3218644f); // about 0.0126
        for (int i = 0; i < kBlockSize; ++i) y[i] += Tick(state.leak, x[i]) * leakGain;
    }
    if (state.t3 != nullptr) {
        for (int i = 0; i < kBlockSize; ++i) y[i] *= state.t3->AtIndex(state.cutoffNorm[i] * 44.1f);
    }
    return kProcessOk;
}

} // namespace Norvell::Vantor
