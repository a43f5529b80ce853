#include "processor/modules/vcf.h"
#include "processor/modules/voices.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <vector>

using namespace Norvell::Vantor;

namespace {

constexpr double kPi = 3.14159265358979323846;

// One filter instance of voice 0 with its own buffers, centred tuning and
// the voice active, holding key 60.
struct Rig {
    VcfState vcf;
    VoiceState voices;
    ProcessContext ctx;
    float params[kVcfParamCount] = {};
    float audio[kBlockSize] = {};
    float cutoffMod[kBlockSize] = {};
    float resMod[kBlockSize] = {};
    float vibrato[kBlockSize] = {};
    float bend[kBlockSize] = {};
    float lag[kBlockSize] = {};
    float fm[kBlockSize] = {};
    float out[kBlockSize] = {};
    float* in[7] = {audio, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
    float* outs[1] = {out};

    explicit Rig(float rate = 44100.0f) {
        Init(vcf, 0);
        for (size_t i = 0; i < kVcfParamCount; ++i) vcf.params.bound[i] = &params[i];
        vcf.fineTune = 0.5f;
        vcf.voiceDetune = 0.5f;
        vcf.voiceTranspose = 0.6f;
        ctx.sampleRate = rate;
        ctx.voiceState = &voices;
        AddVoice(voices.activeVoices, 0);
        voices.voiceMessage[0] = 0x90u | 60u << 8 | 100u << 16;
    }
    void ConnectModInputs() {
        float* all[7] = {audio, cutoffMod, resMod, vibrato, bend, lag, fm};
        for (int i = 0; i < 7; ++i) in[i] = all[i];
    }
    int32_t Run(bool runAnyway = false) { return Process(vcf, in, 7, outs, 1, ctx, runAnyway); }
    void RunBlocks(int n) {
        for (int b = 0; b < n; ++b) Run();
    }
};

double NoteHz(int m) {
    return 440.0 * std::exp2((m - 69) / 12.0);
}

// Amplitude of a sine probe through the filter, Hann-windowed so DC offsets
// and leakage do not count.
double ProbeGain(Rig& rig, double hz, double amplitude = 0.05) {
    const double w = 2.0 * kPi * hz / rig.ctx.sampleRate;
    const int settle = 400, measure = 400;
    std::complex<double> acc = 0.0;
    double windowSum = 0.0;
    long n = 0;
    for (int b = 0; b < settle + measure; ++b) {
        for (int i = 0; i < kBlockSize; ++i)
            rig.audio[i] = static_cast<float>(amplitude * std::sin(w * double(n + i)));
        rig.Run();
        if (b >= settle) {
            for (int i = 0; i < kBlockSize; ++i) {
                const double t = double((b - settle) * kBlockSize + i) / (measure * kBlockSize);
                const double hann = 0.5 - 0.5 * std::cos(2.0 * kPi * t);
                acc += hann * rig.out[i] * std::polar(1.0, -w * double(n + i));
                windowSum += hann;
            }
        }
        n += kBlockSize;
    }
    return 2.0 * std::abs(acc) / windowSum / amplitude;
}

// The cascade runs each one-pole twice per sample on the held input and sums
// both passes: |H| = 2 cos^2(w/4) |one-pole(w/2)|^poles, one-pole a/(1-(1-a)z^-1)
// with a = 1 - exp(-pi fc/rate). highpass: 1 - one-pole.
double CascadeModel(double fc, double hz, double rate, int poles, bool highpass) {
    const double a = 1.0 - std::exp(-kPi * fc / rate);
    const double theta = kPi * hz / rate;
    const std::complex<double> h = a / (1.0 - (1.0 - a) * std::polar(1.0, -theta));
    const double tap = highpass ? std::abs(1.0 - h) : std::pow(std::abs(h), poles);
    return 2.0 * std::pow(std::cos(theta / 2.0), 2.0) * tap;
}

} // namespace

TEST(Vcf, TypeSelectsModeByFifteenths) {
    const std::pair<float, int32_t> cases[] = {{0.066f, 0}, {0.067f, 1}, {0.99f, 14}, {1.0f, 14}};
    for (const auto& [type, mode] : cases) {
        Rig rig;
        rig.params[kVcfType] = type;
        rig.Run();
        EXPECT_EQ(rig.vcf.mode, mode) << type;
        EXPECT_EQ(rig.vcf.loadedMode, mode) << type;
    }
}

TEST(Vcf, CutoffFollowsLawKeyAndTuning) {
    Rig rig;
    // Keyboard follow: 8 steps up from the key's own frequency.
    rig.params[kVcfKeyboardFollow] = 1.0f;
    rig.params[kVcfCutoff] = 8.0f / 127.0f;
    rig.Run();
    EXPECT_NEAR(rig.vcf.cutoffHz[31], NoteHz(60), NoteHz(60) * 5e-4);
    rig.voices.voiceMessage[0] = 0x80u | 72u << 8; // a note-off still names the key
    rig.Run();
    EXPECT_NEAR(rig.vcf.cutoffHz[31], NoteHz(72), NoteHz(72) * 5e-4);
    rig.voices.voiceMessage[0] = 0xB0u | 72u << 8; // any other message: key 0, at the floor
    rig.Run();
    EXPECT_FLOAT_EQ(rig.vcf.cutoffHz[31], 17.0f);

    // Law table without keyboard follow: top, a breakpoint, between two.
    // A fresh filter starts its glide at 1000 and lands on the target in the
    // first block, up to the float spacing at 1000 (6e-5 of the control).
    const std::pair<float, double> points[] = {
        {1.0f, 1.0},
        {60.0f / 127.0f, 0.019560669},
        {62.5f / 127.0f, 0.5 * (0.019560669 + 0.027204148)},
    };
    for (const auto& [cutoff, value] : points) {
        Rig law;
        law.params[kVcfCutoff] = cutoff;
        law.Run();
        const double hz = value * 7514.9175 + 17.0;
        EXPECT_NEAR(law.vcf.cutoffHz[31], hz, hz * 5e-4) << cutoff;
    }
    // Transpose 0.8 adds 12 tuning steps.
    Rig law;
    law.vcf.voiceTranspose = 0.8f;
    law.params[kVcfCutoff] = 1.0f;
    law.Run();
    const double tuned = 7531.9175 * std::exp2(0.083213426 * 12.0);
    EXPECT_NEAR(law.vcf.cutoffHz[31], tuned, tuned * 2e-4);
}

TEST(Vcf, CutoffGlideIsHyperbolic) {
    Rig rig;
    rig.params[kVcfCutoff] = 1.0f;
    rig.Run();
    EXPECT_FLOAT_EQ(rig.vcf.cutoffControl[0], 1.0f); // first block: at once
    rig.params[kVcfCutoff] = 0.0f;
    rig.Run();
    // d' = d exp(-c d): 1/d grows by at least c and at most c + c^2 per sample.
    const double c = 10000.0 / 44100.0;
    const double left = rig.vcf.cutoffControl[31];
    EXPECT_LE(left, 1.0 / (1.0 + 32 * c) + 1e-6);
    EXPECT_GE(left, 1.0 / (1.0 + 32 * (c + c * c)) - 1e-6);
}

TEST(Vcf, ControlInputsShiftTheCutoff) {
    Rig rig;
    rig.ConnectModInputs();
    rig.params[kVcfLag] = 1.0f;
    rig.params[kVcfPitchbend] = 1.0f;
    rig.lag[0] = 0.25f;
    rig.bend[0] = 0.5f;
    rig.vibrato[0] = 0.5f; // vibrato switch off: ignored
    rig.Run();
    EXPECT_NEAR(rig.vcf.cutoffControl[31], 0.25 + 0.5 * 2.0 / 63.0, 1e-4);
    rig.cutoffMod[5] = 2.0f;
    rig.Run();
    EXPECT_FLOAT_EQ(rig.vcf.cutoffControl[5], 1.0f); // clamped

    // Input 1 unconnected: the lag pointer taken last time stays in use.
    float otherLag[kBlockSize] = {};
    rig.in[1] = nullptr;
    rig.in[5] = otherLag;
    rig.cutoffMod[5] = 0.0f;
    rig.RunBlocks(50);
    EXPECT_NEAR(rig.vcf.cutoffControl[31], 0.25 + 0.5 * 2.0 / 63.0, 1e-4);

    // FM adds 7 x 5000 Hz per unit.
    Rig fm;
    fm.ConnectModInputs();
    fm.params[kVcfCutoff] = 60.0f / 127.0f;
    for (float& v : fm.fm) v = 0.01f;
    fm.RunBlocks(2);
    const double hz = 0.019560669 * 7514.9175 + 17.0 + 350.0;
    EXPECT_NEAR(fm.vcf.cutoffHz[31], hz, hz * 2e-4);
}

TEST(Vcf, HighResonanceLowersCutoff) {
    Rig rig;
    rig.params[kVcfCutoff] = 0.8f;
    rig.RunBlocks(300);
    const double open = rig.vcf.cutoffHz[31];
    rig.params[kVcfRes] = 0.9f; // Q below 3.86156: no correction
    rig.RunBlocks(300);
    EXPECT_NEAR(rig.vcf.cutoffHz[31] / open, 1.0, 1e-5);
    rig.params[kVcfRes] = 1.0f; // top of the law: 5.7985077
    rig.RunBlocks(300);
    // The float one-pole settles about 1.3e-5 short of 1, 1e-4 in the factor.
    const double factor = 1.0 - 0.05627411 * (5.7985077 - 3.86156);
    EXPECT_NEAR(rig.vcf.cutoffHz[31] / open, factor, 2e-4);
    EXPECT_NEAR(1.0 - factor, 0.109, 0.001);
}

TEST(Vcf, ModeChangeDampsResonanceForOneBlockThenClears) {
    Rig rig;
    rig.params[kVcfType] = 3.5f / 15.0f;
    rig.params[kVcfRes] = 1.0f;
    rig.params[kVcfCutoff] = 0.6f;
    for (int i = 0; i < kBlockSize; ++i) rig.audio[i] = (i < 16) ? 0.5f : -0.5f;
    rig.RunBlocks(300);
    ASSERT_NE(rig.vcf.s4, 0.0f);

    rig.params[kVcfType] = 9.5f / 15.0f;
    rig.Run();
    // The resonance target was 1 % for this block.
    const double keep = std::exp(-100.0 * 32 / 44100.0);
    EXPECT_NEAR(rig.vcf.resState, 0.01 + 0.99 * keep, 1e-4);
    // Then the new mode is loaded with cleared memory.
    EXPECT_EQ(rig.vcf.loadedMode, 9);
    EXPECT_EQ(rig.vcf.s1 + rig.vcf.s2 + rig.vcf.s3 + rig.vcf.s4 + rig.vcf.fbAvg, 0.0f);
    EXPECT_EQ(rig.vcf.section1.bp + rig.vcf.section1.lp + rig.vcf.section2.lp, 0.0f);
    const float before = rig.vcf.resState;
    rig.Run();
    EXPECT_GT(rig.vcf.resState, before); // full target again
}

TEST(Vcf, EveryModeStaysBoundedUnderFullSweepAtMaxResonance) {
    for (float rate : {44100.0f, 48000.0f, 96000.0f}) {
        for (int mode = 0; mode < kVcfModeCount; ++mode) {
            Rig rig(rate);
            rig.ConnectModInputs();
            rig.params[kVcfType] = (mode + 0.5f) / 15.0f;
            rig.params[kVcfRes] = 1.0f;
            for (float& v : rig.resMod) v = 0.5f;
            double peak = 0.0;
            bool finite = true;
            long n = 0;
            for (int b = 0; b < 600; ++b) {
                const float sweep = b < 300 ? b / 299.0f : (599 - b) / 299.0f;
                rig.params[kVcfCutoff] = sweep;
                for (int i = 0; i < kBlockSize; ++i, ++n) {
                    const double t = double(n) / rate;
                    rig.audio[i] = static_cast<float>(3.0 * (std::fmod(110.0 * t, 1.0) - 0.5));
                    rig.fm[i] = static_cast<float>(0.2 * std::sin(2.0 * kPi * 3.0 * t));
                }
                rig.Run();
                for (float y : rig.out) {
                    finite = finite && std::isfinite(y);
                    peak = std::max(peak, double(std::fabs(y)));
                }
            }
            EXPECT_TRUE(finite) << "mode " << mode << " at " << rate;
            // Saturated cascade taps stay within 10.06; 1000 covers the widest mix.
            EXPECT_LT(peak, 1000.0) << "mode " << mode << " at " << rate;
            EXPECT_GT(peak, 0.01) << "mode " << mode << " at " << rate;
        }
    }
}

TEST(Vcf, NoSubnormalsAfterInputStops) {
    for (int mode : {2, 3, 9, 10}) {
        Rig rig;
        rig.params[kVcfType] = (mode + 0.5f) / 15.0f;
        rig.params[kVcfCutoff] = 0.5f;
        rig.params[kVcfRes] = 0.7f;
        for (int i = 0; i < kBlockSize; ++i) rig.audio[i] = (i % 7) * 0.1f - 0.3f;
        rig.RunBlocks(20);
        for (float& v : rig.audio) v = 0.0f;
        bool clean = true;
        for (int b = 0; b < 3000; ++b) {
            rig.Run();
            const VcfState& s = rig.vcf;
            const float states[] = {s.s1,          s.s2,          s.s3,         s.s4,
                                    s.fbAvg,       s.leak.bp,     s.leak.lp,    s.section1.bp,
                                    s.section1.lp, s.section2.bp, s.section2.lp};
            for (float v : states) clean = clean && std::fpclassify(v) != FP_SUBNORMAL;
            for (float v : rig.out) clean = clean && std::fpclassify(v) != FP_SUBNORMAL;
        }
        EXPECT_TRUE(clean) << "mode " << mode;
        if (mode == 9 || mode == 10) {
            EXPECT_EQ(rig.out[31], 0.0f) << "mode " << mode;
        }
    }
}

TEST(Vcf, CascadeModesShapeSineProbes) {
    const double rate = 44100.0;
    // Mode 3: four-pole low-pass, taps weighted -1.7857, G 0.35, R 0.1, Q 0.01.
    // Mode 4: the input minus one pole, weights 1 and -1, G 0.35, R 0.08.
    struct Probe {
        float type;
        double weight, g, r;
        int poles;
        bool highpass;
    };
    for (const Probe& p : {Probe{3.5f / 15, 1.7857, 0.35, 0.1, 4, false},
                           Probe{4.5f / 15, 1.0, 0.35, 0.08, 1, true}}) {
        for (double ratio : {1.0 / 16, 0.5, 1.0, 2.0}) {
            Rig rig;
            rig.params[kVcfType] = p.type;
            rig.params[kVcfCutoff] = 0.6f;
            rig.RunBlocks(20);
            const double fc = rig.vcf.cutoffHz[31];
            const double expected = p.weight * p.g * (1.0 - 0.01 * p.r) *
                                    CascadeModel(fc, ratio * fc, rate, p.poles, p.highpass);
            EXPECT_NEAR(ProbeGain(rig, ratio * fc), expected, expected * 0.03)
                << "type " << p.type << " at " << ratio << " x cutoff";
        }
    }
    // An octave above the cutoff the four-pole mode is down by over 24 dB.
    Rig lp;
    lp.params[kVcfType] = 3.5f / 15;
    lp.params[kVcfCutoff] = 0.6f;
    lp.RunBlocks(20);
    const double fc = lp.vcf.cutoffHz[31];
    EXPECT_LT(ProbeGain(lp, 2.0 * fc) / ProbeGain(lp, fc / 16), std::pow(10.0, -24.0 / 20.0));
}

TEST(Vcf, SectionModesShelveAsDefined) {
    // Both sections pass their low-pass with unit gain after the division by
    // gL, so far below the cutoff only 0.63 (and mode 10's 10^(-0.35 q)) remain.
    const double q = 0.01 * 0.25;
    Rig low9, low10;
    low9.params[kVcfType] = 9.5f / 15;
    low10.params[kVcfType] = 10.5f / 15;
    for (Rig* r : {&low9, &low10}) r->params[kVcfCutoff] = 1.0f;
    EXPECT_NEAR(ProbeGain(low9, 60.0), 0.63, 0.63 * 0.02);
    const double g10 = 0.63 * std::pow(10.0, -0.35 * q);
    EXPECT_NEAR(ProbeGain(low10, 60.0), g10, g10 * 0.02);

    // Mode 9 far above the cutoff: the high-pass parts, 0.63 / (gL gL2).
    Rig high9;
    high9.params[kVcfType] = 9.5f / 15;
    high9.params[kVcfCutoff] = 0.0f;
    const double e = 7.0 * q + (1.0 - q);
    const double hf = 0.63 / (std::pow(10.0, -0.05 * e) * std::pow(10.0, -0.035 * e));
    EXPECT_NEAR(ProbeGain(high9, 4000.0), hf, hf * 0.02);
}

TEST(Vcf, StatusAndVoiceGate) {
    Rig rig;
    rig.ctx.voiceState = nullptr;
    EXPECT_EQ(rig.Run(), kProcessUnusable);
    rig.ctx.voiceState = &rig.voices;
    rig.in[0] = nullptr;
    EXPECT_EQ(rig.Run(), kProcessMissing);
    rig.in[0] = rig.audio;
    rig.outs[0] = nullptr;
    EXPECT_EQ(rig.Run(), kProcessMissing);
    rig.outs[0] = rig.out;

    // Inactive voice: silence unless asked to run anyway.
    for (float& v : rig.audio) v = 0.5f;
    RemoveVoice(rig.voices.activeVoices, 0);
    for (float& v : rig.out) v = 1.0f;
    EXPECT_EQ(rig.Run(), kProcessOk);
    for (float y : rig.out) EXPECT_EQ(y, 0.0f);
    rig.params[kVcfCutoff] = 1.0f;
    rig.RunBlocks(3);
    rig.Run(true);
    EXPECT_NE(rig.out[31], 0.0f);

    // A zero sample rate is ignored rather than divided by.
    Rig zero(0.0f);
    for (float& v : zero.audio) v = 0.5f;
    zero.RunBlocks(4);
    for (float y : zero.out) EXPECT_TRUE(std::isfinite(y));

    Rig unassigned;
    unassigned.vcf.voiceIndex = -1;
    EXPECT_EQ(unassigned.Run(), kProcessMissing);
}
