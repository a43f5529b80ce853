#include "processor/modules/vcf.h"
#include "processor/modules/voices.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <tuple>

using namespace Norvell::Vantor;

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
        for (size_t i = 0; i < kVcfParamCount; ++i) vcf.params.bound[i] = &params[i];
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

// Gain for a small sine, Hann-windowed so DC offsets and leakage do not count.
double ProbeGain(Rig& rig, double hz) {
    const double w = 2.0 * M_PI * hz / rig.ctx.sampleRate, amplitude = 0.05;
    std::complex<double> acc = 0.0;
    for (long n = 0, b = 0; b < 800; ++b, n += kBlockSize) {
        for (int i = 0; i < kBlockSize; ++i)
            rig.audio[i] = static_cast<float>(amplitude * std::sin(w * double(n + i)));
        rig.Run();
        for (int i = 0; b >= 400 && i < kBlockSize; ++i) {
            const double hann = 0.5 - 0.5 * std::cos(2.0 * M_PI * double(n - 12800 + i) / 12800.0);
            acc += hann * rig.out[i] * std::polar(1.0, -w * double(n + i));
        }
    }
    return 2.0 * std::abs(acc) / 6400.0 / amplitude; // the window sums to 6400
}

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
    ASSERT_NE(rig.vcf.s4, 0.0f);
    rig.params[kVcfType] = 9.5f / 15.0f;
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
                for (float v : {s.s1, s.s2, s.s3, s.s4, s.fbAvg, s.leak.bp, s.leak.lp,
                                s.section1.bp, s.section1.lp, s.section2.bp, s.section2.lp})
                    clean = clean && normal(v);
                clean = clean && std::all_of(rig.out, rig.out + kBlockSize, normal);
            }
            EXPECT_TRUE(clean) << "mode " << mode;
        }
    }
}

TEST(Vcf, SineProbesMatchTheModeTable) {
    // Mode 3: four poles, weight -1.7857, G 0.35, R 0.1, Q(0) = 0.01; feedback (k about 0.01)
    // is left out: 3 %. Each one-pole a/(1-(1-a)z^-1), a = 1 - exp(-pi fc/rate), runs twice
    // per sample on the held input and both passes are summed: |H| = 2 cos^2(w/4) |tap(w/2)|.
    for (double ratio : {1.0 / 16, 0.5, 1.0, 2.0}) {
        Rig rig(3, 0.6f);
        const double fc = rig.Run(), theta = M_PI * ratio * fc / 44100.0;
        const double a = 1.0 - std::exp(-M_PI * fc / 44100.0);
        const double tap = std::abs(a / (1.0 - (1.0 - a) * std::polar(1.0, -theta)));
        const double expected = 1.7857 * 0.35 * (1.0 - 0.01 * 0.1) * 2.0 *
                                std::pow(std::cos(theta / 2.0), 2.0) * std::pow(tap, 4);
        EXPECT_NEAR(ProbeGain(rig, ratio * fc), expected, expected * 0.03) << ratio << " x cutoff";
    }
}

} // namespace
