#include "module_rig.h"
#include "processor/modules/vcf.h"

#include "dsp/fastmath.h"
#include "processor/modules/voices.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <tuple>
#include <vector>

using namespace Norvell::Vantor;
using VantorTest::BindAll;

namespace {

// Filter of voice 0 in `mode` with its own buffers, centred tuning, the voice active on key 60.
struct Rig {
    VcfState vcf;
    VoiceState voices;
    ProcessContext ctx;
    float params[kVcfParamCount] = {};
    float audio[kBlockSize] = {}, zero[kBlockSize] = {}, res[kBlockSize] = {}, fm[kBlockSize] = {};
    float* in[7] = {audio, zero, res, zero, zero, zero, fm}; // no cutoff, vibrato, bend, lag
    float out[kBlockSize] = {}, *outs[1] = {out};
    explicit Rig(int mode = 0, float cutoff = 0.0f, float q = 0.0f, float rate = 44100.0f) {
        Init(vcf, 0);
        BindAll(vcf.params, params);
        params[kVcfType] = (mode + 0.5f) / 15.0f;
        params[kVcfCutoff] = cutoff;
        params[kVcfRes] = q;
        vcf.tuning = {0.5f, 0.5f, 0.6f};
        ctx.sampleRate = rate;
        ctx.voiceState = &voices;
        AddVoice(voices.activeVoices, 0);
        voices.voiceMessage[0] = 0x90u | 60u << 8 | 100u << 16;
    }
    float Run(int blocks = 1) { // the cutoff in Hz at the end
        for (int b = 0; b < blocks; ++b) Process(vcf, in, 7, outs, 1, ctx, false);
        return vcf.cutoffHz[31];
    }
};

// A fresh filter lands on its cutoff in the first block, up to 6e-5: tolerances are 5e-4.
TEST(Vcf, CutoffFollowsLawKeyAndTuning) {
    Rig key(0, 8.0f / 127.0f);
    key.params[kVcfKeyboardFollow] = 1.0f;
    for (const auto& [status, note] : {std::pair{0x90u, 60u}, {0x80u, 72u}}) { // note-offs too
        key.voices.voiceMessage[0] = status | note << 8;
        const double hz = 440.0 * std::exp2((note - 69.0) / 12.0);
        EXPECT_NEAR(key.Run(), hz, hz * 5e-4) << note;
    }
    key.voices.voiceMessage[0] = 0xB0u | 72u << 8; // other messages: key 0, below the floor
    EXPECT_FLOAT_EQ(key.Run(), 17.0f);
    // Law breakpoints at 127 and 60, and halfway from 60 to 65; transpose 0.8 is +12 steps.
    const double l60 = 0.019560669, l65 = 0.027204148;
    const std::tuple<float, float, double> points[] = {
        {1.0f, 0.6f, 7531.9175},
        {60.0f / 127.0f, 0.6f, l60 * 7514.9175 + 17.0},
        {62.5f / 127.0f, 0.6f, (l60 + l65) / 2.0 * 7514.9175 + 17.0},
        {1.0f, 0.8f, 7531.9175 * std::exp2(0.083213426 * 12.0)}};
    for (const auto& [cutoff, transpose, hz] : points) {
        Rig law(0, cutoff);
        law.vcf.tuning.voiceTranspose = transpose;
        EXPECT_NEAR(law.Run(), hz, hz * 5e-4) << cutoff << " " << transpose;
    }
}

TEST(Vcf, HighResonanceLowersCutoffUpToElevenPercent) {
    Rig rig(0, 0.8f);
    const double open = rig.Run(300);
    rig.params[kVcfRes] = 0.9f; // Q below 3.86156: no correction
    EXPECT_NEAR(rig.Run(300) / open, 1.0, 1e-5);
    rig.params[kVcfRes] = 1.0f; // Q 5.7985077; the float one-pole stops 1.3e-5 short of 1
    EXPECT_NEAR(rig.Run(300) / open, 1.0 - 0.05627411 * (5.7985077 - 3.86156), 2e-4);
}

TEST(Vcf, TypeSelectsModeByFifteenthsAndAChangeDampsResonanceForOneBlock) {
    Rig rig(3, 0.6f, 1.0f);
    for (const auto& [type, mode] : {std::pair{0.066f, 0}, {0.067f, 1}, {0.99f, 14}, {1.0f, 14}}) {
        rig.params[kVcfType] = type;
        rig.Run();
        EXPECT_EQ(rig.vcf.loadedMode, mode) << type;
    }
    rig.params[kVcfType] = 3.5f / 15.0f;
    for (int i = 0; i < kBlockSize; ++i) rig.audio[i] = (i < 16) ? 0.5f : -0.5f;
    rig.Run(300);
    ASSERT_NE(rig.vcf.pole[3], 0.0f);
    rig.params[kVcfType] = 9.5f / 15.0f;
    rig.Run();
    // One block towards 1 % of the target, then mode 9 with cleared memory.
    EXPECT_NEAR(rig.vcf.resState, 0.01 + 0.99 * std::exp(-100.0 * 32 / 44100.0), 1e-4);
    EXPECT_EQ(rig.vcf.loadedMode, 9);
    EXPECT_EQ(rig.vcf.pole[0] + rig.vcf.pole[1] + rig.vcf.pole[2] + rig.vcf.pole[3] +
                  rig.vcf.feedbackAvg,
              0.0f);
    EXPECT_EQ(rig.vcf.svfFirst.bp + rig.vcf.svfFirst.lp + rig.vcf.svfSecond.lp, 0.0f);
    const float damped = rig.vcf.resState;
    rig.Run();
    EXPECT_GT(rig.vcf.resState, damped);
}

TEST(Vcf, EveryModeStaysBoundedAndFreeOfSubnormals) {
    const auto normal = [](float v) { return std::fpclassify(v) != FP_SUBNORMAL; };
    for (float rate : {44100.0f, 48000.0f, 96000.0f}) {
        for (int mode = 0; mode < kVcfModeCount; ++mode) {
            Rig rig(mode, 0.0f, 1.0f, rate); // full sweeps on a loud sawtooth with FM
            std::fill_n(rig.res, kBlockSize, 0.5f);
            double peak = 0.0;
            for (long n = 0, b = 0; b < 600; ++b) {
                rig.params[kVcfCutoff] = b < 300 ? b / 299.0f : (599 - b) / 299.0f;
                for (int i = 0; i < kBlockSize; ++i, ++n) {
                    const double t = double(n) / rate;
                    rig.audio[i] = static_cast<float>(3.0 * (std::fmod(110.0 * t, 1.0) - 0.5));
                    rig.fm[i] = static_cast<float>(0.2 * std::sin(2.0 * M_PI * 3.0 * t));
                }
                rig.Run();
                for (float y : rig.out)
                    peak = std::isfinite(y) ? std::max(peak, std::fabs(y) * 1.0) : 1e9;
            }
            // Saturated cascade taps stay within 10.06; 1000 covers the widest mix.
            EXPECT_TRUE(peak < 1000.0 && peak > 0.01) << mode << " at " << rate << ": " << peak;
            if (rate != 44100.0f) continue;
            rig.params[kVcfCutoff] = 0.5f; // then silence: nothing decays into subnormals
            rig.params[kVcfRes] = 0.7f;
            std::fill_n(rig.audio, kBlockSize, 0.0f);
            bool clean = true;
            for (int b = 0; b < 3000; ++b) {
                rig.Run();
                const VcfState& s = rig.vcf;
                for (float v :
                     {s.pole[0], s.pole[1], s.pole[2], s.pole[3], s.feedbackAvg, s.leak.bp,
                      s.leak.lp, s.svfFirst.bp, s.svfFirst.lp, s.svfSecond.bp, s.svfSecond.lp})
                    clean = clean && normal(v);
                clean = clean && std::all_of(rig.out, rig.out + kBlockSize, normal);
            }
            EXPECT_TRUE(clean) << "mode " << mode;
        }
    }
}

// Filtering voices together gives every voice the bytes it gets alone: lanes
// of different modes side by side, mode changes, FM, and inputs that drive
// the soft clips into their clamps and NaN.
TEST(Vcf, VoicesFilteredTogetherMatchEachFilteredAlone) {
    constexpr int kVoices = 7; // one full pass of four lanes and a partial one
    const int modes[kVoices] = {3, 9, 0, 6, 10, 2, 14};
    std::vector<std::unique_ptr<Rig>> alone, together;
    for (int r = 0; r < kVoices; ++r) {
        for (auto* rigs : {&alone, &together}) {
            rigs->push_back(std::make_unique<Rig>(modes[r], 0.3f + 0.1f * r, 0.15f * r));
            rigs->back()->params[kVcfKeyboardFollow] = float(r % 2);
        }
    }
    const auto same = [](float a, float b) {
        return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0;
    };
    for (int b = 0; b < 200; ++b) {
        std::vector<VcfCall> calls;
        for (int r = 0; r < kVoices; ++r) {
            for (auto* rigs : {&alone, &together}) {
                Rig& rig = *(*rigs)[r];
                if (b == 60) rig.params[kVcfType] = (modes[(r + 3) % kVoices] + 0.5f) / 15.0f;
                for (int i = 0; i < kBlockSize; ++i) {
                    const float phase = float((b * kBlockSize + i) % (40 + r)) / float(40 + r);
                    rig.audio[i] = (1.0f + 3.0f * r) * (phase - 0.5f);
                    rig.res[i] = 0.2f * std::sin(0.05f * float(b + r));
                    rig.fm[i] = r == 4 ? 0.1f * std::sin(0.3f * float(i + b)) : 0.0f;
                }
                rig.in[kVcfInCutoffMod] = rig.res;
                if (b == 150 && r == 2) rig.audio[5] = std::nanf("");
                if (b == 120 && r == 5) rig.audio[9] = 1e30f;
            }
            alone[r]->Run();
            Rig& rig = *together[r];
            calls.push_back({&rig.vcf, rig.in, rig.outs, false});
        }
        ProcessVoices(calls.data(), kVoices, together[0]->ctx);
        for (int r = 0; r < kVoices; ++r) {
            const VcfState& a = alone[r]->vcf;
            const VcfState& t = together[r]->vcf;
            for (int i = 0; i < kBlockSize; ++i)
                ASSERT_TRUE(same(alone[r]->out[i], together[r]->out[i]))
                    << "voice " << r << " block " << b << " sample " << i;
            for (int k = 0; k < 4; ++k) ASSERT_TRUE(same(a.pole[k], t.pole[k])) << r << " " << b;
            ASSERT_TRUE(same(a.feedbackAvg, t.feedbackAvg)) << r << " " << b;
        }
    }
}

} // namespace

namespace {

using Norvell::dsp::FastPow2;
using Norvell::dsp::NoteFrequencies;

// Linear interpolation between integer breakpoints; a lookup past the end gives the last entry.
struct Law {
    std::vector<float> t;
    Law(std::initializer_list<std::pair<int, float>> points) {
        for (auto p = points.begin(); p + 1 != points.end(); ++p)
            for (int i = p->first; i < (p + 1)->first; ++i) {
                const float f = float(i - p->first) / float((p + 1)->first - p->first);
                t.push_back((1.0f - f) * p->second + f * (p + 1)->second);
            }
        t.push_back((points.end() - 1)->second);
    }
    explicit Law(std::vector<float> v) : t(std::move(v)) {}
    float operator()(float x) const {
        const float last = float(t.size() - 1);
        if (x >= last) return t.back();
        const int i = int(x);
        return (1.0f - (x - float(i))) * t[i] + (x - float(i)) * t[i + 1];
    }
};

const Law kCutoffLaw{{0, 0},
                     {10, 0.0000095f},
                     {20, 0.0002322284f},
                     {25, 0.0002614687f},
                     {30, 0.0012674928f},
                     {35, 0.0025233906f},
                     {40, 0.004278765f},
                     {45, 0.0067218216f},
                     {50, 0.00979111f},
                     {55, 0.014060779f},
                     {60, 0.019560669f},
                     {65, 0.027204148f},
                     {70, 0.037124366f},
                     {75, 0.05014566f},
                     {80, 0.067577764f},
                     {85, 0.09134807f},
                     {90, 0.1238766f},
                     {95, 0.16367598f},
                     {100, 0.22037372f},
                     {105, 0.28846809f},
                     {110, 0.3838103f},
                     {115, 0.50871754f},
                     {120, 0.67216605f},
                     {125, 0.88056797f},
                     {127, 1.0f}};
const Law kResLaw{{0, 0.01f},       {10, 0.01f},      {20, 0.58772874f},
                  {30, 1.1012639f}, {40, 1.9999735f}, {50, 3.0271499f},
                  {60, 3.6690855f}, {62, 3.8615601f}, {63, 5.7985077f}};
const Law kTableA{{3.37f, 3.319f, 3.2f,  3.117f, 3.025f, 2.938f, 2.8566f, 2.775f,
                   2.71f, 2.655f, 2.6f,  2.562f, 2.53f,  2.497f, 2.47f,   2.448f,
                   2.42f, 2.39f,  2.35f, 2.3f,   2.24f,  2.176f, 2.15f,   0}};
const Law kTableB{{3.963f, 4.032f, 4.164f, 4.287f, 4.4f,   4.5f,   4.585f, 4.655f,
                   4.705f, 4.733f, 4.74f,  4.727f, 4.692f, 4.638f, 4.567f, 4.48f,
                   4.384f, 4.28f,  4.17f,  4.05f,  3.94f,  3.82f,  3.71f,  0}};
const Law kTableF{{1,      1,     1,      1,     1,     1,     1,     1,
                   0.995f, 0.99f, 0.985f, 0.98f, 0.94f, 0.92f, 0.91f, 0.9f,
                   0.88f,  0.85f, 0.94f,  0.94f, 0.94f, 0.94f, 0.94f, 0}};
const Law kTableE{{1,        1.12202f, 1.2735f,  1.41254f, 1.62181f, 1.88365f, 2.23872f, 2.5704f,
                   2.98538f, 4.16228f, 5.16228f, 6.16228f, 7.16228f, 8.16228f, 3.16228f, 2.81838f,
                   2.51189f, 2.51189f, 2.51189f, 0,        0,        0,        0,        0}};
const Law kTableU{
    std::vector<float>{1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0}};

float Saturate(float v) {
    return v * (v * v + 27.0f) / (9.0f * v * v + 27.0f);
}
float Pow10(float y) {
    return FastPow2(3.3218644f * y);
}

// State-variable section: y = high pass + gL low pass + gB band pass.
struct Section {
    float p = 0, bp = 0, lp = 0;
    float Run(float v, float g, float k, float gL, float gB) {
        const float d = 1.0f / ((g + k) * g + 1.0f), u = v + p;
        p = v;
        const float bp1 = ((u - (g + k) * bp - 2.0f * lp) * g + bp) * d;
        const float lp1 = (((u - lp) * g + 2.0f * bp + k * lp) * g + lp) * d;
        bp = bp1, lp = lp1;
        return (v - k * bp1 - lp1) + gL * lp1 + gB * bp1;
    }
};

struct ModeRow {
    int tap;
    float c[4], g, r;
    const Law *t1, *t3;
};
const ModeRow kModes[15] = {
    {1, {0, -1.6129f, 0, 0}, 0.35f, 0.1f, &kTableA, nullptr},
    {},
    {1, {0, 0, 0, -1.7857f}, 0.35f, 0.02f, &kTableA, nullptr},
    {0, {0, 0, 0, -1.7857f}, 0.35f, 0.1f, &kTableB, nullptr},
    {},
    {},
    {1, {0.98039f, -3.0121f, 3.01205f, -1.05f}, 0.435f, 0.1f, &kTableB, &kTableE},
    {},
    {},
    {1, {1, -2, 2, 0}, 0.435f, 0.1f, &kTableU, nullptr},
    {1, {0.9901f, -3.1646f, 5.64612f, -4.01606f}, 0.435f, 0.1f, &kTableU, nullptr}};

// The filter written from its steps, for a mode already loaded (the first block is run
// only for its smoothers).
struct VcfModel {
    int mode = 0;
    float rate = 0, inv = 0, cutoffState = 1000.0f, resState = 0, resMod = 0;
    float s[4] = {}, prevS4 = 0, fbAvg = 0;
    float hz[kBlockSize] = {}, norm[kBlockSize] = {};
    Section leak, sec1, sec2;
    void Clear() {
        std::fill(s, s + 4, 0.0f);
        prevS4 = fbAvg = 0.0f;
        leak = sec1 = sec2 = Section{};
    }
    void Block(const float* const* in, const float* p, float keyHz, float* out, float gate) {
        const ModeRow& m = kModes[mode];
        float res[kBlockSize], k[kBlockSize];
        for (int i = 0; i < kBlockSize; ++i) {
            resState += (p[kVcfRes] * gate - resState) * (1.0f - std::exp(-100.0f * inv));
            resMod += (in[2][i] - resMod) * 0.002f;
            res[i] = kResLaw(63.0f * std::clamp(resState + 2.0f * resMod, 0.0f, 1.0f));
            k[i] = res[i] * (*m.t1)(norm[i] * 44.1f) / m.t1->t[0] * kTableF(hz[i] * 0.001f);
        }
        float t = p[kVcfCutoff];
        if (p[kVcfPitchbend] > 0) t += in[4][0] * 0.031746034f;
        if (p[kVcfVibrato] > 0) t += in[3][0] * 0.031746034f;
        if (p[kVcfLag] > 0) t += in[5][0];
        const float tune =
            FastPow2(0.083213426f * ((0.5f - 0.5f) + (0.5f - 0.5f) + 60.0f * 0.6f - 36.0f));
        for (int i = 0; i < kBlockSize; ++i) {
            cutoffState +=
                (t - cutoffState) * (1.0f - std::exp(-std::fabs(cutoffState - t) * 10000.0f * inv));
            const float c = std::clamp(cutoffState + in[1][i], 0.0f, 1.0f);
            const float f0 = p[kVcfKeyboardFollow] > 0
                                 ? keyHz * FastPow2((127.0f * c - 8.0f) * 0.083213426f)
                                 : kCutoffLaw(127.0f * c) * 7514.9175f + 17.0f;
            const float f = std::clamp(f0 * tune + in[6][i] * 7.0f * 5000.0f, 17.0f, 18686.205f);
            hz[i] =
                f * (1.0f - 0.05627411f * (std::clamp(res[i], 3.86156f, 5.7985077f) - 3.86156f));
            norm[i] = hz[i] * inv;
        }
        for (int i = 0; i < kBlockSize; ++i) {
            const float x = in[0][i], fc = hz[i], q = res[i] * 0.25f;
            if (mode == 9) {
                const float g = std::tan(
                    3.1415927f * std::clamp((0.2f * q + 1.0f) * fc, 0.0f, 18686.205f) * inv);
                const float e = 7.0f * q + (1.0f - q), k2 = 1.0f / (1.4f * q + 0.6f * (1.0f - q));
                const float gL = Pow10(-0.05f * e), gL2 = Pow10(-0.035f * e);
                const float y = sec1.Run(x, g, 0.5f / (0.3f * (1.0f - q) + q), gL,
                                         Pow10(-0.025f * e) * 0.033333335f) /
                                gL;
                out[i] = sec2.Run(y, g, k2, gL2, Pow10(-0.0175f * e) * k2) / gL2 * 0.63f;
            } else if (mode == 10) {
                const float g1 = std::tan(3.1415927f * std::clamp(1.6f * fc, 0.0f, 14300.0f) * inv);
                const float g2 =
                    std::tan(3.1415927f * std::clamp(1.2f * fc, 0.0f, 18686.205f) * inv);
                const float w = std::clamp(1.0f - fc * 0.000058866957f * q, 0.06f, 1.0f);
                const float gL = Pow10(0.05f), e2 = -0.15f * (1.0f - q) - 1.0500001f * q,
                            gL2 = Pow10(e2);
                const float y = sec1.Run(x, g1, 0.5f / ((0.5f * (1.0f - q) + 2.5f * q) * w), gL,
                                         Pow10(0.025f) * 0.033333335f / w) *
                                Pow10(-0.35f * q) / gL;
                out[i] = sec2.Run(y, g2, 2.2222223f, gL2, Pow10(e2 / 2.0f) * 2.0f) / gL2 * 0.63f;
            } else {
                const float a = 1.0f - std::exp(-3.1415927f * norm[i]);
                float sum = 0.0f;
                for (int sub = 0; sub < 2; ++sub) {
                    const float drive = std::clamp(Saturate((k[i] + 1.0f) * x * 0.2f), -1.0f, 1.0f);
                    const float fb =
                        std::clamp(Saturate(k[i] * fbAvg * 0.2f + 0.012f), -1.0f, 1.0f);
                    float u = 5.0f * drive - 5.0f * fb + 0.06f;
                    s[0] += (u - s[0]) * a;
                    if (m.tap) s[0] = u;
                    for (int j = 1; j < 4; ++j) s[j] += (s[j - 1] - s[j]) * a;
                    fbAvg = (s[3] + prevS4) * 0.5f, prevS4 = s[3];
                    sum += m.c[0] * s[0] + m.c[1] * s[1] + m.c[2] * s[2] + m.c[3] * s[3];
                }
                out[i] = sum * ((1.0f - res[i] * m.r) * m.g);
            }
            if (mode == 2) {
                out[i] += leak.Run(x, std::tan(26703.54f * inv), 2.857143f, 0.0f, 0.0f) *
                          FastPow2(-1.9f * 3.3218644f);
            }
            if (m.t3) out[i] *= (*m.t3)(norm[i] * 44.1f);
        }
    }
};

struct FilterCase {
    int mode = 0;
    float cutoff, res, rate = 44100.0f;
    float keyFollow = 0, lag = 0, bend = 0, vibrato = 0, fm = 0, cutoffMod = 0, resMod = 0;
};

} // namespace

TEST(Vcf, ModesMatchTheModelSampleBySample) {
    const FilterCase cases[] = {
        {2, 0.7f, 0.6f},
        {2, 0.45f, 0.95f, 48000.0f, 1, 0, 0, 0, 0, 0.1f},
        {9, 0.6f, 0.8f},
        {9, 0.5f, 1.0f, 44100.0f, 0, 0, 0, 0, 0.03f},
        {10, 0.5f, 0.9f, 48000.0f},
        {10, 0.7f, 0.1f, 44100.0f, 0, 1, 1, 1},
        {0, 0.4f, 0.7f, 44100.0f, 1, 0, 0, 0, 0, 0.2f, 0.3f},
        {3, 0.9f, 0.97f, 96000.0f, 0, 1, 0, 1, 0.02f},
        {6, 0.55f, 0.85f, 44100.0f, 0, 0, 1, 0, 0, 0, 0.2f},
    };
    for (const FilterCase& c : cases) {
        SCOPED_TRACE(testing::Message() << "mode " << c.mode << " cutoff " << c.cutoff);
        Rig rig(c.mode, c.cutoff, c.res, c.rate);
        const float flags[] = {c.keyFollow, c.lag, c.bend, c.vibrato};
        for (int f = 0; f < 4; ++f) rig.params[kVcfKeyboardFollow + f] = flags[f];
        float bufs[7][kBlockSize] = {};
        float* in[7];
        for (int i = 0; i < 7; ++i) in[i] = rig.in[i] = bufs[i];
        VcfModel model;
        model.mode = c.mode, model.rate = c.rate, model.inv = 1.0f / c.rate;
        float expected[kBlockSize];
        model.Block(in, rig.params, NoteFrequencies()[60], expected, c.mode ? 0.01f : 1.0f);
        rig.Run(); // the mode is loaded at its end, with cleared filter states
        model.Clear();
        for (int n = 0, b = 1; b < 300; ++b) {
            for (int i = 0; i < kBlockSize; ++i, ++n) {
                const double t = double(n) / c.rate;
                bufs[0][i] = float(0.8 * (std::fmod(97.0 * t, 1.0) - 0.5) +
                                   0.3 * std::sin(2 * M_PI * 3100 * t));
                bufs[1][i] = c.cutoffMod * float(std::sin(2 * M_PI * 2.0 * t));
                bufs[2][i] = c.resMod * float(std::sin(2 * M_PI * 1.5 * t));
                bufs[6][i] = c.fm * float(std::sin(2 * M_PI * 30.0 * t));
            }
            bufs[3][0] = 0.7f * float(std::sin(b * 0.1)),
            bufs[4][0] = 0.5f * float(std::cos(b * 0.07));
            bufs[5][0] = 0.2f * float(std::sin(b * 0.05));
            model.Block(in, rig.params, NoteFrequencies()[60], expected, 1.0f);
            rig.Run();
            for (int i = 0; i < kBlockSize; ++i)
                ASSERT_NEAR(rig.out[i], expected[i], 2e-4f * std::max(1.0f, std::fabs(expected[i])))
                    << "block " << b << " sample " << i;
        }
    }
}
