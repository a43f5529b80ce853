#include "engine_harness.h"
#include "processor/modules/vcf.h"
#include "processor/modules/voices.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>

using namespace Norvell::Vantor;

namespace {

constexpr double kPi = 3.14159265358979323846;

// Filter of voice 0 with its own buffers, centred tuning, the voice active on key 60.
struct Rig {
    VcfState vcf;
    VoiceState voices;
    ProcessContext ctx;
    float params[kVcfParamCount] = {};
    float audio[kBlockSize] = {}, cutoffMod[kBlockSize] = {}, resMod[kBlockSize] = {};
    float vibrato[kBlockSize] = {}, bend[kBlockSize] = {}, lag[kBlockSize] = {};
    float fm[kBlockSize] = {}, out[kBlockSize] = {};
    float* in[7] = {audio, cutoffMod, resMod, vibrato, bend, lag, fm};
    float* outs[1] = {out};

    explicit Rig(float rate = 44100.0f, float type = 0.0f, float cutoff = 0.0f, float res = 0.0f) {
        Init(vcf, 0);
        for (size_t i = 0; i < kVcfParamCount; ++i) vcf.params.bound[i] = &params[i];
        params[kVcfType] = type;
        params[kVcfCutoff] = cutoff;
        params[kVcfRes] = res;
        vcf.fineTune = vcf.voiceDetune = 0.5f;
        vcf.voiceTranspose = 0.6f;
        ctx.sampleRate = rate;
        ctx.voiceState = &voices;
        AddVoice(voices.activeVoices, 0);
        voices.voiceMessage[0] = 0x90u | 60u << 8 | 100u << 16;
    }
    int32_t Run(bool runAnyway = false) { return Process(vcf, in, 7, outs, 1, ctx, runAnyway); }
    void RunBlocks(int n) {
        for (int b = 0; b < n; ++b) Run();
    }
};

float Mode(int m) {
    return (m + 0.5f) / 15.0f;
}

double NoteHz(int m) {
    return 440.0 * std::exp2((m - 69) / 12.0);
}

// Gain for a small sine, Hann-windowed so DC offsets and leakage do not count.
double ProbeGain(Rig& rig, double hz) {
    const double w = 2.0 * kPi * hz / rig.ctx.sampleRate, amplitude = 0.05;
    std::complex<double> acc = 0.0;
    double windowSum = 0.0;
    for (long n = 0, b = 0; b < 800; ++b, n += kBlockSize) {
        for (int i = 0; i < kBlockSize; ++i)
            rig.audio[i] = static_cast<float>(amplitude * std::sin(w * double(n + i)));
        rig.Run();
        for (int i = 0; b >= 400 && i < kBlockSize; ++i) {
            const double hann = 0.5 - 0.5 * std::cos(2.0 * kPi * double(n - 12800 + i) / 12800.0);
            acc += hann * rig.out[i] * std::polar(1.0, -w * double(n + i));
            windowSum += hann;
        }
    }
    return 2.0 * std::abs(acc) / windowSum / amplitude;
}

// Each one-pole a/(1-(1-a)z^-1), a = 1 - exp(-pi fc/rate), runs twice per sample on the
// held input and both passes are summed: |H| = 2 cos^2(w/4) |tap(w/2)|.
double CascadeModel(double fc, double hz, int poles, bool highpass) {
    const double a = 1.0 - std::exp(-kPi * fc / 44100.0), theta = kPi * hz / 44100.0;
    const std::complex<double> h = a / (1.0 - (1.0 - a) * std::polar(1.0, -theta));
    const double tap = highpass ? std::abs(1.0 - h) : std::pow(std::abs(h), poles);
    return 2.0 * std::pow(std::cos(theta / 2.0), 2.0) * tap;
}

} // namespace

TEST(Vcf, TypeSelectsModeByFifteenths) {
    for (const auto& [type, mode] : {std::pair{0.066f, 0}, {0.067f, 1}, {0.99f, 14}, {1.0f, 14}}) {
        Rig rig(44100.0f, type);
        rig.Run();
        EXPECT_EQ(rig.vcf.loadedMode, mode) << type;
    }
}

// A fresh filter lands on its cutoff in the first block, up to the float
// spacing at the 1000 start (6e-5 of the control): tolerances are 5e-4.
TEST(Vcf, CutoffFollowsLawKeyTuningAndInputs) {
    Rig key(44100.0f, 0.0f, 8.0f / 127.0f);
    key.params[kVcfKeyboardFollow] = 1.0f;
    key.Run();
    EXPECT_NEAR(key.vcf.cutoffHz[31], NoteHz(60), NoteHz(60) * 5e-4);
    key.voices.voiceMessage[0] = 0x80u | 72u << 8; // a note-off still names the key
    key.Run();
    EXPECT_NEAR(key.vcf.cutoffHz[31], NoteHz(72), NoteHz(72) * 5e-4);
    key.voices.voiceMessage[0] = 0xB0u | 72u << 8; // other messages: key 0, below the floor
    key.Run();
    EXPECT_FLOAT_EQ(key.vcf.cutoffHz[31], 17.0f);

    // Law breakpoints at 127 and 60, and halfway from 60 to 65; transpose 0.8 is +12 steps.
    const double l60 = 0.019560669, l65 = 0.027204148;
    const std::tuple<float, float, double> points[] = {
        {1.0f, 0.6f, 7531.9175},
        {60.0f / 127.0f, 0.6f, l60 * 7514.9175 + 17.0},
        {62.5f / 127.0f, 0.6f, (l60 + l65) / 2.0 * 7514.9175 + 17.0},
        {1.0f, 0.8f, 7531.9175 * std::exp2(0.083213426 * 12.0)}};
    for (const auto& [cutoff, transpose, hz] : points) {
        Rig law(44100.0f, 0.0f, cutoff);
        law.vcf.voiceTranspose = transpose;
        law.Run();
        EXPECT_NEAR(law.vcf.cutoffHz[31], hz, hz * 5e-4) << cutoff << " " << transpose;
    }

    // FM adds 7 x 5000 Hz per unit; lag and bend (x 2/63) move the control,
    // vibrato is off and ignored.
    Rig mod(44100.0f, 0.0f, 60.0f / 127.0f);
    for (float& v : mod.fm) v = 0.01f;
    mod.Run();
    EXPECT_NEAR(mod.vcf.cutoffHz[31], l60 * 7514.9175 + 17.0 + 350.0, 0.3);
    mod.params[kVcfLag] = mod.params[kVcfPitchbend] = 1.0f;
    mod.params[kVcfCutoff] = 0.0f;
    mod.lag[0] = 0.25f;
    mod.bend[0] = mod.vibrato[0] = 0.5f;
    mod.RunBlocks(300);
    const double control = 0.25 + 0.5 * 2.0 / 63.0;
    EXPECT_NEAR(mod.vcf.cutoffControl[31], control, 1e-3);
    // Input 1 unconnected: the lag pointer taken before stays in use.
    float otherLag[kBlockSize] = {};
    mod.in[1] = nullptr;
    mod.in[5] = otherLag;
    mod.RunBlocks(10);
    EXPECT_NEAR(mod.vcf.cutoffControl[31], control, 1e-3);
}

TEST(Vcf, HighResonanceLowersCutoffUpToElevenPercent) {
    Rig rig(44100.0f, 0.0f, 0.8f);
    rig.RunBlocks(300);
    const double open = rig.vcf.cutoffHz[31];
    rig.params[kVcfRes] = 0.9f; // Q below 3.86156: no correction
    rig.RunBlocks(300);
    EXPECT_NEAR(rig.vcf.cutoffHz[31] / open, 1.0, 1e-5);
    rig.params[kVcfRes] = 1.0f; // Q 5.7985077; the float one-pole stops 1.3e-5 short of 1
    rig.RunBlocks(300);
    EXPECT_NEAR(rig.vcf.cutoffHz[31] / open, 1.0 - 0.05627411 * (5.7985077 - 3.86156), 2e-4);
}

TEST(Vcf, ModeChangeDampsResonanceForOneBlockThenClears) {
    Rig rig(44100.0f, Mode(3), 0.6f, 1.0f);
    for (int i = 0; i < kBlockSize; ++i) rig.audio[i] = (i < 16) ? 0.5f : -0.5f;
    rig.RunBlocks(300);
    ASSERT_NE(rig.vcf.s4, 0.0f);
    rig.params[kVcfType] = Mode(9);
    rig.Run();
    // One block towards 1 % of the target, then mode 9 with cleared memory.
    EXPECT_NEAR(rig.vcf.resState, 0.01 + 0.99 * std::exp(-100.0 * 32 / 44100.0), 1e-4);
    EXPECT_EQ(rig.vcf.loadedMode, 9);
    EXPECT_EQ(rig.vcf.s1 + rig.vcf.s2 + rig.vcf.s3 + rig.vcf.s4 + rig.vcf.fbAvg, 0.0f);
    EXPECT_EQ(rig.vcf.section1.bp + rig.vcf.section1.lp + rig.vcf.section2.lp, 0.0f);
    const float damped = rig.vcf.resState;
    rig.Run();
    EXPECT_GT(rig.vcf.resState, damped);
}

TEST(Vcf, EveryModeStaysBoundedUnderFullSweepAtMaxResonance) {
    for (float rate : {44100.0f, 48000.0f, 96000.0f}) {
        for (int mode = 0; mode < kVcfModeCount; ++mode) {
            Rig rig(rate, Mode(mode), 0.0f, 1.0f);
            for (float& v : rig.resMod) v = 0.5f;
            double peak = 0.0;
            bool finite = true;
            for (long n = 0, b = 0; b < 600; ++b) {
                rig.params[kVcfCutoff] = b < 300 ? b / 299.0f : (599 - b) / 299.0f;
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
            // Saturated cascade taps stay within 10.06; 1000 covers the widest mix.
            EXPECT_TRUE(finite && peak < 1000.0 && peak > 0.01)
                << "mode " << mode << " at " << rate << " peak " << peak;
        }
    }
}

TEST(Vcf, NoSubnormalsAfterInputStops) {
    for (int mode : {2, 3, 9, 10}) {
        Rig rig(44100.0f, Mode(mode), 0.5f, 0.7f);
        for (int i = 0; i < kBlockSize; ++i) rig.audio[i] = (i % 7) * 0.1f - 0.3f;
        rig.RunBlocks(20);
        for (float& v : rig.audio) v = 0.0f;
        bool clean = true;
        for (int b = 0; b < 3000; ++b) {
            rig.Run();
            const VcfState& s = rig.vcf;
            for (float v : {s.s1, s.s2, s.s3, s.s4, s.fbAvg, s.leak.bp, s.leak.lp, s.section1.bp,
                            s.section1.lp, s.section2.bp, s.section2.lp})
                clean = clean && std::fpclassify(v) != FP_SUBNORMAL;
            for (float v : rig.out) clean = clean && std::fpclassify(v) != FP_SUBNORMAL;
        }
        EXPECT_TRUE(clean) << "mode " << mode;
    }
}

TEST(Vcf, SineProbesMatchTheModeTable) {
    // Mode 3: four poles, weight -1.7857, G 0.35, R 0.1. Mode 4: input minus one
    // pole, G 0.35, R 0.08. Q(0) = 0.01. Feedback (k about 0.01) is left out: 3 %.
    struct Probe {
        int mode;
        double weight, r;
        int poles;
    };
    for (const Probe& p : {Probe{3, 1.7857, 0.1, 4}, Probe{4, 1.0, 0.08, 0}}) {
        for (double ratio : {1.0 / 16, 0.5, 1.0, 2.0}) {
            Rig rig(44100.0f, Mode(p.mode), 0.6f);
            rig.Run();
            const double fc = rig.vcf.cutoffHz[31];
            const double expected = p.weight * 0.35 * (1.0 - 0.01 * p.r) *
                                    CascadeModel(fc, ratio * fc, p.poles, p.poles == 0);
            EXPECT_NEAR(ProbeGain(rig, ratio * fc), expected, expected * 0.03)
                << "mode " << p.mode << " at " << ratio << " x cutoff";
        }
    }
    // The sections' low-pass parts pass with unit gain after the division by gL:
    // far below the cutoff 0.63 (times 10^(-0.35 q) in mode 10) remains; far above
    // it mode 9 leaves the high-pass parts, 0.63 / (gL gL2).
    const double q = 0.01 * 0.25, e = 7.0 * q + (1.0 - q);
    Rig low9(44100.0f, Mode(9), 1.0f), low10(44100.0f, Mode(10), 1.0f), high9(44100.0f, Mode(9));
    EXPECT_NEAR(ProbeGain(low9, 60.0), 0.63, 0.63 * 0.02);
    EXPECT_NEAR(ProbeGain(low10, 60.0), 0.63 * std::pow(10.0, -0.35 * q), 0.63 * 0.02);
    const double hf = 0.63 / std::pow(10.0, -0.085 * e);
    EXPECT_NEAR(ProbeGain(high9, 4000.0), hf, hf * 0.02);
}

TEST(Vcf, StatusAndVoiceGate) {
    Rig rig(44100.0f, 0.0f, 1.0f);
    for (float& v : rig.audio) v = 0.5f;
    rig.ctx.voiceState = nullptr;
    EXPECT_EQ(rig.Run(), kProcessUnusable);
    rig.ctx.voiceState = &rig.voices;
    rig.in[0] = nullptr;
    EXPECT_EQ(rig.Run(), kProcessMissing);
    rig.in[0] = rig.audio;
    RemoveVoice(rig.voices.activeVoices, 0);
    for (float& v : rig.out) v = 1.0f;
    EXPECT_EQ(rig.Run(), kProcessOk);
    for (float y : rig.out) EXPECT_EQ(y, 0.0f);
    rig.RunBlocks(3);
    rig.Run(true);
    EXPECT_NE(rig.out[31], 0.0f);

    Rig zeroRate(0.0f); // ignored rather than divided by
    for (float& v : zeroRate.audio) v = 0.5f;
    zeroRate.RunBlocks(4);
    for (float y : zeroRate.out) EXPECT_TRUE(std::isfinite(y));
}

// Through the whole engine: the host's filter settings reach the voice filter.
TEST(Vcf, HostSettingsDarkenTheVoice) {
    auto brightness = [](float cutoff) {
        VantorTest::EngineHarness h(44100.0f);
        h.SetupSingleVoicePatch();
        h.Set("voice1_osc1_saw-on", 1.0f);
        h.Set("voice1_osc1_keyboard_follow", 1.0f);
        h.Set("voice1_osc1_freq", 12.0f / 63.0f);
        h.Set("voice1_osc1_volume", 0.6f);
        h.Set("voice1_vcf_type", Mode(3));
        h.Set("voice1_vcf_keyboard-follow", 1.0f);
        h.Set("voice1_vcf_cutoff", cutoff);
        h.NoteOn(57, 100);
        const VantorTest::Stereo s = h.RenderBlocks(400);
        double level = 0.0, slope = 0.0;
        for (size_t i = 200 * 32 + 1; i < s.left.size(); ++i) {
            level += double(s.left[i]) * s.left[i];
            slope += std::pow(double(s.left[i]) - s.left[i - 1], 2.0);
        }
        EXPECT_GT(level, 0.0) << cutoff;
        return std::sqrt(slope / level);
    };
    // Cutoff at the key (8 steps) against five octaves above it.
    EXPECT_LT(brightness(8.0f / 127.0f), 0.5 * brightness(68.0f / 127.0f));
}
