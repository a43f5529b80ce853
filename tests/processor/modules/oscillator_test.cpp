#include "processor/modules/oscillator.h"

#include "dsp/fastmath.h"
#include "dsp/random.h"
#include "processor/modules/voices.h"
#include "tools/steptable/steptablegen.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <vector>

using namespace Norvell::Vantor;
using Norvell::dsp::FastPow2;
using Norvell::dsp::NoteFrequencies;

namespace {

constexpr float kSemitone = 0.083213426f;
constexpr double kGain = 1.68; // output gain at full volume

// One oscillator of voice 0, driven directly with hand-made input buffers.
struct OscRig {
    explicit OscRig(float rate = 44100.0f, int key = 81) {
        Init(osc, 0);
        for (size_t i = 0; i < kOscParamCount; ++i) osc.params.bound[i] = &values[i];
        values[kOscVolume] = 1.0f;
        values[kOscDetune] = 0.5f;
        values[kOscKeyboardFollow] = 1.0f;
        values[kOscFreq] = 12.0f / 63.0f;
        voices.activeVoices = 1;
        Key(key);
        ctx.sampleRate = rate;
        ctx.voiceState = &voices;
    }
    void Key(int key) { voices.voiceMessage[0] = 0x90u | uint32_t(key) << 8 | 100u << 16; }
    static void Fill(float* buffer, float v) { std::fill(buffer, buffer + kBlockSize, v); }

    int32_t Block(bool runAnyway = false) {
        osc.fineTune = fineTune;
        osc.voiceDetune = voiceDetune;
        osc.voiceTranspose = voiceTranspose;
        float* in[kOscInputCount] = {pitch,   pulseWidth, volume, sync,   glide,
                                     vibrato, bend,       linFm,  jitter, fmActive};
        float* out[2] = {aux, audio};
        return Process(osc, in, 1, out, 2, ctx, runAnyway);
    }
    // Audio (or the auxiliary output) of n samples, whole blocks.
    std::vector<float> Render(int samples, bool auxOut = false) {
        std::vector<float> result;
        result.reserve(static_cast<size_t>(samples) + kBlockSize);
        while (static_cast<int>(result.size()) < samples) {
            Block();
            const float* src = auxOut ? aux : audio;
            result.insert(result.end(), src, src + kBlockSize);
        }
        result.resize(static_cast<size_t>(samples));
        return result;
    }

    OscillatorState osc;
    float values[kOscParamCount] = {};
    float fineTune = 0.5f, voiceDetune = 0.5f, voiceTranspose = 0.6f;
    VoiceState voices;
    ProcessContext ctx;
    float pitch[kBlockSize] = {}, pulseWidth[kBlockSize] = {}, volume[kBlockSize] = {};
    float vibrato[kBlockSize] = {}, bend[kBlockSize] = {}, jitter[kBlockSize] = {};
    float* sync = nullptr;
    float* glide = nullptr;
    float* linFm = nullptr;
    float* fmActive = nullptr;
    float aux[kBlockSize] = {}, audio[kBlockSize] = {};
};

// Static pitch in semitones from the tuning values.
float StaticPitch(float freq, float detune = 0.5f) {
    return (0.5f - 0.5f) + (DetuneLaw(detune) - 0.5f) + (0.5f - 0.5f) + 60.0f * 0.6f +
           63.0f * freq - 36.0f;
}

// Fundamental from rising mid-level crossings (with hysteresis), refined by
// linear interpolation; skips the first tenth of a second.
double MeasureFrequency(const std::vector<float>& x, double rate) {
    double lo = 1e9, hi = -1e9;
    for (float v : x) lo = std::min(lo, double(v)), hi = std::max(hi, double(v));
    const double mid = 0.5 * (lo + hi), band = 0.25 * (hi - lo);
    bool armed = false;
    double first = -1.0, last = -1.0;
    int crossings = 0;
    for (size_t n = static_cast<size_t>(rate / 10); n < x.size(); ++n) {
        if (x[n] < mid - band) armed = true;
        if (armed && x[n - 1] < mid && x[n] >= mid) {
            const double t = double(n - 1) + (mid - x[n - 1]) / (double(x[n]) - x[n - 1]);
            if (first < 0) first = t;
            last = t;
            ++crossings;
            armed = false;
        }
    }
    return crossings > 1 ? (crossings - 1) * rate / (last - first) : 0.0;
}

double Mean(const std::vector<float>& x, size_t from = 0) {
    double sum = 0.0;
    for (size_t n = from; n < x.size(); ++n) sum += x[n];
    return sum / double(x.size() - from);
}

double Rms(const std::vector<float>& x, size_t from = 0) {
    const double mean = Mean(x, from);
    double sum = 0.0;
    for (size_t n = from; n < x.size(); ++n) sum += (x[n] - mean) * (x[n] - mean);
    return std::sqrt(sum / double(x.size() - from));
}

// ---------------------------------------------------------------- pitch

struct PitchCase {
    const char* name;
    int key;
    float freq;
    float rate;
    float pitchIn = 0.0f;
    float vibratoIn = 0.0f;
    bool vibratoOn = false;
    float bendIn = 0.0f;
    bool bendOn = false;
    float detune = 0.5f;
    float jitterIn = 0.0f;
};

// f = (jitter * 0.189 + 2^(0.083213426 m)) * note[key - 12] with
// m = clamp(bend * 16/63 + pitch + vibrato * 16/63, -1, 1) * 16 + P.
double ExpectedFrequency(const PitchCase& c) {
    const float scale = 16.0f / 63.0f;
    const float mod = c.bendIn * (c.bendOn ? scale : 0.0f) + c.pitchIn +
                      c.vibratoIn * (c.vibratoOn ? scale : 0.0f);
    const float m = std::clamp(mod, -1.0f, 1.0f) * 16.0f + StaticPitch(c.freq, c.detune);
    const double base = c.key >= 12 ? NoteFrequencies()[c.key - 12] : 0.0;
    return std::clamp((c.jitterIn * 0.006 * 0.5 * 63 + FastPow2(kSemitone * m)) * base, 20.0,
                      16000.0);
}

class OscillatorPitch : public ::testing::TestWithParam<PitchCase> {};

TEST_P(OscillatorPitch, SawFundamentalFollowsThePitchLaw) {
    const PitchCase& c = GetParam();
    OscRig rig(c.rate, c.key);
    rig.values[kOscSawOn] = 1.0f;
    rig.values[kOscFreq] = c.freq;
    rig.values[kOscDetune] = c.detune;
    rig.values[kOscVibrato] = c.vibratoOn ? 1.0f : 0.0f;
    rig.values[kOscPitchbend] = c.bendOn ? 1.0f : 0.0f;
    OscRig::Fill(rig.pitch, c.pitchIn);
    OscRig::Fill(rig.vibrato, c.vibratoIn);
    OscRig::Fill(rig.bend, c.bendIn);
    OscRig::Fill(rig.jitter, c.jitterIn);
    const std::vector<float> y = rig.Render(static_cast<int>(c.rate * 1.1f));
    EXPECT_NEAR(MeasureFrequency(y, c.rate), ExpectedFrequency(c), 0.5);
}

INSTANTIATE_TEST_SUITE_P(
    Laws, OscillatorPitch,
    ::testing::Values(
        // Centred tuning, freq 12/63: the note table entry of key - 12.
        PitchCase{"key81", 81, 12.0f / 63.0f, 44100.0f},
        PitchCase{"key69", 69, 12.0f / 63.0f, 44100.0f},
        PitchCase{"key45at48k", 45, 12.0f / 63.0f, 48000.0f},
        PitchCase{"key60freqHalf", 60, 0.5f, 96000.0f}, PitchCase{"freqZero", 93, 0.0f, 44100.0f},
        PitchCase{"detuneUp", 81, 12.0f / 63.0f, 44100.0f, 0, 0, false, 0, false, 1.0f},
        PitchCase{"detuneBetween", 81, 12.0f / 63.0f, 44100.0f, 0, 0, false, 0, false, 0.25f},
        PitchCase{"pitchInputHalf", 69, 12.0f / 63.0f, 44100.0f, 0.5f},
        PitchCase{"pitchInputClamped", 69, 12.0f / 63.0f, 44100.0f, -3.0f},
        PitchCase{"vibratoOn", 69, 12.0f / 63.0f, 44100.0f, 0, 0.5f, true},
        PitchCase{"vibratoOff", 69, 12.0f / 63.0f, 44100.0f, 0, 0.5f, false},
        PitchCase{"bendOnPlusPitch", 69, 12.0f / 63.0f, 44100.0f, 0.1f, 0, false, -0.4f, true},
        PitchCase{"bendOff", 69, 12.0f / 63.0f, 44100.0f, 0, 0, false, 0.4f, false},
        PitchCase{"jitter", 69, 12.0f / 63.0f, 44100.0f, 0, 0, false, 0, false, 0.5f, 0.2f},
        PitchCase{"belowKey12Clamps", 5, 0.5f, 44100.0f}),
    [](const ::testing::TestParamInfo<PitchCase>& info) { return std::string(info.param.name); });

TEST(OscillatorPitchFormula, CentredTuningIsTheFormulaNotTheEqualTemperedNote) {
    // 0.083213426 is not 1/12: key 81 with freq 12/63 sits just below 880 Hz.
    const double f81 = FastPow2(kSemitone * 12.0f) * NoteFrequencies()[69];
    const double f69 = FastPow2(kSemitone * 12.0f) * NoteFrequencies()[57];
    EXPECT_NEAR(f69, 439.6, 0.1);
    EXPECT_NEAR(f81, 879.2, 0.2);
    EXPECT_NEAR(ExpectedFrequency({"", 81, 12.0f / 63.0f, 44100.0f}), f81, 0.01);
}

TEST(OscillatorPitchFormula, WithoutKeyboardFollowTheBaseIs16Hz) {
    OscRig rig;
    rig.values[kOscSawOn] = 1.0f;
    rig.values[kOscKeyboardFollow] = 0.0f;
    rig.values[kOscFreq] = 1.0f;
    const double expected = FastPow2(kSemitone * StaticPitch(1.0f)) * 16.0;
    EXPECT_NEAR(MeasureFrequency(rig.Render(48510), 44100.0), expected, 0.5);
}

TEST(OscillatorPitchFormula, GlideInputSetsTheBase) {
    float glide[kBlockSize];
    {
        // Keyboard follow: the note table entry nearest to value * 127 - 12.
        OscRig rig(44100.0f, 100);
        rig.values[kOscSawOn] = 1.0f;
        rig.values[kOscLagOn] = 1.0f;
        OscRig::Fill(glide, (69.4f + 12.0f) / 127.0f);
        rig.glide = glide;
        const double expected = FastPow2(kSemitone * StaticPitch(12.0f / 63.0f)) * 440.0;
        EXPECT_NEAR(MeasureFrequency(rig.Render(48510), 44100.0), expected, 0.5);
    }
    {
        // Without it: 440 * 2^((k - 69) / 12) through FastPow2.
        OscRig rig(44100.0f, 100);
        rig.values[kOscSawOn] = 1.0f;
        rig.values[kOscLagOn] = 1.0f;
        rig.values[kOscKeyboardFollow] = 0.0f;
        OscRig::Fill(glide, (62.5f + 12.0f) / 127.0f);
        rig.glide = glide;
        const float k = ((62.5f + 12.0f) / 127.0f) * 127.0f - 12.0f;
        const double expected = FastPow2(kSemitone * StaticPitch(12.0f / 63.0f)) * 440.0 *
                                FastPow2((k - 69.0f) * 0.083333336f);
        EXPECT_NEAR(MeasureFrequency(rig.Render(48510), 44100.0), expected, 0.5);
    }
}

TEST(OscillatorPitchFormula, LinearFmAddsHertz) {
    OscRig rig(44100.0f, 69);
    float fm[kBlockSize];
    OscRig::Fill(fm, 0.02f);
    rig.linFm = fm;
    rig.values[kOscSawOn] = 1.0f;
    const double expected = FastPow2(kSemitone * StaticPitch(12.0f / 63.0f)) * 220.0 + 100.0;
    EXPECT_NEAR(MeasureFrequency(rig.Render(48510), 44100.0), expected, 0.5);
}

// ---------------------------------------------------------------- laws

TEST(OscillatorLaws, DetuneLawAtAndBetweenItsPoints) {
    const float xs[] = {0.0f, 0.16129032f, 0.32258064f, 0.5f, 0.67741936f, 0.83870965f, 1.0f};
    const float ys[] = {0.0f, 0.276f, 0.444f, 0.5f, 0.544f, 0.724f, 1.0f};
    for (int i = 0; i < 7; ++i) EXPECT_NEAR(DetuneLaw(xs[i]), ys[i], 1e-6f) << xs[i];
    for (int i = 0; i < 6; ++i) {
        const float x = xs[i] + 0.3f * (xs[i + 1] - xs[i]);
        EXPECT_NEAR(DetuneLaw(x), ys[i] + 0.3f * (ys[i + 1] - ys[i]), 2e-6f) << x;
    }
    EXPECT_EQ(DetuneLaw(1.01f), 0.0f);
    EXPECT_EQ(DetuneLaw(std::nanf("")), 0.0f);
}

TEST(OscillatorLaws, PulseWidthLawAtAndBetweenItsBreakpoints) {
    const int idx[] = {0, 10, 20, 31, 40, 50, 60, 63};
    const float val[] = {0.07786905f, 0.2163280f,  0.36512917f, 0.49767828f,
                         0.65670204f, 0.79429406f, 0.945502f,   0.9835f};
    for (int i = 0; i < 8; ++i) EXPECT_NEAR(PulseWidthLaw(idx[i] / 63.0f), val[i], 1e-6f);
    for (int i = 0; i < 7; ++i) {
        // Quarter of the way between two breakpoints.
        const float p = idx[i] + 0.25f * (idx[i + 1] - idx[i]);
        EXPECT_NEAR(PulseWidthLaw(p / 63.0f), val[i] + 0.25f * (val[i + 1] - val[i]), 2e-6f);
    }
}

TEST(OscillatorLaws, PulseThresholdFromWidthAndModulation) {
    OscRig rig;
    rig.values[kOscPulseOn] = 1.0f;
    rig.values[kOscPulseWidth] = 0.0f;
    rig.Block();
    EXPECT_FLOAT_EQ(rig.osc.pulseThreshold, 0.07786905f);
    OscRig::Fill(rig.pulseWidth, 0.02f);
    rig.Block();
    EXPECT_NEAR(rig.osc.pulseThreshold, 0.07786905f - 1.232f * 0.02f, 1e-6f);
    OscRig::Fill(rig.pulseWidth, 5.0f);
    rig.Block();
    EXPECT_EQ(rig.osc.pulseThreshold, 0.0f);
    OscRig::Fill(rig.pulseWidth, -5.0f);
    rig.Block();
    EXPECT_EQ(rig.osc.pulseThreshold, 1.0f);
}

// Fraction of each period that the pulse is high (levels +-0.5 around 0).
double HighFraction(const std::vector<float>& y) {
    const size_t from = y.size() / 10;
    size_t high = 0;
    for (size_t n = from; n < y.size(); ++n) high += y[n] > 0.0f;
    return double(high) / double(y.size() - from);
}

TEST(OscillatorLaws, PulseWidthSetsTheDutyCycle) {
    for (float width : {0.0f, 0.3f, 0.5f, 0.8f, 1.0f}) {
        OscRig rig(44100.0f, 45); // about 110 Hz: the edges are short
        rig.values[kOscPulseOn] = 1.0f;
        rig.values[kOscPulseWidth] = width;
        // High from the threshold to the wrap.
        EXPECT_NEAR(HighFraction(rig.Render(44100)), 1.0 - PulseWidthLaw(width), 0.01) << width;
    }
    // A large positive modulation holds the pulse high.
    OscRig rig(44100.0f, 45);
    rig.values[kOscPulseOn] = 1.0f;
    OscRig::Fill(rig.pulseWidth, 2.0f);
    const std::vector<float> y = rig.Render(44100);
    const float top = *std::max_element(y.begin() + 4410, y.end());
    EXPECT_NEAR(top, 0.5f * 0.162f * kGain, 0.001);
    EXPECT_GT(*std::min_element(y.begin() + 4410, y.end()), 0.0f);
}

// ---------------------------------------------------------------- switches

TEST(OscillatorSwitches, ExactOneVersusAboveZero) {
    const auto peak = [](OscRig& rig) {
        const std::vector<float> y = rig.Render(4410);
        double p = 0.0;
        for (float v : y) p = std::max(p, double(std::fabs(v)));
        return p;
    };
    {
        OscRig rig;
        rig.values[kOscSawOn] = 0.9f;
        rig.values[kOscPulseOn] = 0.99f;
        rig.values[kOscNoiseOn] = 0.5f;
        rig.values[kOscTriangleOn] = 0.0f;
        EXPECT_EQ(peak(rig), 0.0);
    }
    for (size_t which : {kOscSawOn, kOscPulseOn, kOscNoiseOn}) {
        OscRig rig;
        rig.values[which] = 1.0f;
        EXPECT_GT(peak(rig), 0.05) << which;
    }
    OscRig rig;
    rig.values[kOscTriangleOn] = 0.1f;
    EXPECT_GT(peak(rig), 0.2);
}

TEST(OscillatorSwitches, GainIsVolumePlusInputClampedTimes168) {
    const auto sawPeak = [](float volumeParam, float volumeIn) {
        OscRig rig;
        rig.values[kOscSawOn] = 1.0f;
        rig.values[kOscVolume] = volumeParam;
        OscRig::Fill(rig.volume, volumeIn);
        const std::vector<float> y = rig.Render(8820);
        return double(*std::max_element(y.begin(), y.end()));
    };
    const double full = sawPeak(1.0f, 0.0f);
    EXPECT_NEAR(sawPeak(0.3f, 0.2f) / full, 0.5, 1e-5);
    EXPECT_NEAR(sawPeak(0.8f, 0.7f) / full, 1.0, 1e-6);
    EXPECT_EQ(sawPeak(0.2f, -0.5f), 0.0);
    // Band-limited saw of amplitude 0.5 * 0.317, with its overshoot.
    EXPECT_NEAR(full, 0.5 * 0.317 * kGain, 0.2 * 0.5 * 0.317 * kGain);
}

// ---------------------------------------------------------------- waveforms

TEST(OscillatorWaveforms, TriangleIsCentredWithAFixedLevel) {
    for (int key : {57, 81}) {
        OscRig rig(44100.0f, key);
        rig.values[kOscTriangleOn] = 0.1f;
        const std::vector<float> y = rig.Render(88200);
        const size_t from = 44100;
        const auto [lo, hi] = std::minmax_element(y.begin() + from, y.end());
        // The integrated square swings 0.25 sr / f, times f * 0.00005.
        const double expected = 0.25 * 44100.0 * 0.00005 * kGain;
        EXPECT_NEAR(*hi - *lo, expected, 0.05 * expected) << key;
        EXPECT_NEAR(Mean(y, from), 0.0, 0.02 * expected) << key;
        EXPECT_NEAR(MeasureFrequency({y.begin() + from, y.end()}, 44100.0),
                    FastPow2(kSemitone * StaticPitch(12.0f / 63.0f)) * NoteFrequencies()[key - 12],
                    0.5);
    }
}

TEST(OscillatorWaveforms, NoiseIsZeroMeanWithTheFilteredLevel) {
    OscRig rig;
    rig.values[kOscNoiseOn] = 1.0f;
    const std::vector<float> y = rig.Render(441000);
    // Uniform -1..1 (variance 1/3) through the 10 kHz one-pole (variance
    // factor a / (2 - a)); the 72 Hz peak adds well under 1 %.
    const double a = 1.0 - std::exp(-62831.855 / 44100.0);
    const double expected = std::sqrt(a / (2.0 - a) / 3.0) * 0.108 * kGain;
    EXPECT_NEAR(Rms(y), expected, 0.03 * expected);
    EXPECT_NEAR(Mean(y), 0.0, 0.01 * expected);
}

TEST(OscillatorWaveforms, NoiseFollowsTheConstructionSeed) {
    setenv("VANTOR_SEED", "4242", 1);
    OscRig first;
    first.values[kOscNoiseOn] = 1.0f;
    const std::vector<float> a = first.Render(256);
    OscRig second;
    second.values[kOscNoiseOn] = 1.0f;
    const std::vector<float> b = second.Render(256);
    unsetenv("VANTOR_SEED");
    EXPECT_EQ(a, b);
}

// Worst spectral line away from the harmonics, in dB below the fundamental,
// searched up to maxHz. Blackman-Harris window over 65536 samples.
double AliasLevelDb(const std::vector<float>& y, double rate, double f0, double maxHz) {
    const size_t n = 65536;
    std::vector<std::complex<double>> a(n);
    for (size_t i = 0; i < n; ++i) {
        const double t = 2.0 * M_PI * double(i) / double(n);
        const double w =
            0.35875 - 0.48829 * std::cos(t) + 0.14128 * std::cos(2 * t) - 0.01168 * std::cos(3 * t);
        a[i] = w * y[y.size() - n + i];
    }
    Norvell::Vantor::Tools::Fft(a, false);
    const double binHz = rate / double(n);
    const auto level = [&](size_t bin) { return std::abs(a[bin]); };
    double fundamental = 0.0;
    const size_t f0Bin = static_cast<size_t>(std::lround(f0 / binHz));
    for (size_t b = f0Bin - 6; b <= f0Bin + 6; ++b) fundamental = std::max(fundamental, level(b));
    double worst = 0.0;
    for (size_t b = 1; b < n / 2 && b * binHz <= maxHz; ++b) {
        const double f = double(b) * binHz;
        const double harmonic = std::round(f / f0);
        if (std::fabs(f - harmonic * f0) <= 8.0 * binHz) continue; // main lobe
        if (f < 40.0) continue;                                    // DC
        worst = std::max(worst, level(b));
    }
    return 20.0 * std::log10(fundamental / worst);
}

TEST(OscillatorWaveforms, SawtoothAliasingStaysFarBelowTheFundamental) {
    for (int key : {84, 111}) { // about 1 kHz and 5 kHz
        OscRig rig(44100.0f, key);
        rig.values[kOscSawOn] = 1.0f;
        const std::vector<float> y = rig.Render(65536 + 4096);
        const double f0 =
            FastPow2(kSemitone * StaticPitch(12.0f / 63.0f)) * NoteFrequencies()[key - 12];
        const double full = AliasLevelDb(y, 44100.0, f0, 22050.0);
        const double audible = AliasLevelDb(y, 44100.0, f0, 16000.0);
        std::printf("saw %.1f Hz: alias %.1f dB below the fundamental (%.1f dB up to 16 kHz)\n", f0,
                    full, audible);
        // Measured 77.6 dB at 1 kHz and 74.1 dB at 5 kHz.
        EXPECT_GT(full, 70.0) << f0;

        // The same measure on a naive sawtooth finds its aliasing.
        std::vector<float> naive(y.size());
        for (size_t n = 0; n < naive.size(); ++n) {
            const double phase = double(n) * f0 / 44100.0;
            naive[n] = static_cast<float>(phase - std::floor(phase) - 0.5);
        }
        EXPECT_LT(AliasLevelDb(naive, 44100.0, f0, 22050.0), 45.0) << f0;
    }
}

// ---------------------------------------------------------------- sync, FM output

TEST(OscillatorSync, HardSyncWithSilentSyncInput) {
    float zeros[kBlockSize] = {};
    OscRig free, synced;
    synced.sync = zeros;
    for (OscRig* rig : {&free, &synced}) {
        rig->values[kOscSawOn] = 1.0f;
        rig->values[kOscVolume] = 1.0f / 1.68f;
    }
    synced.values[kOscSync] = 1.0f;
    // Sawtooth unchanged.
    EXPECT_EQ(free.Render(8192), synced.Render(8192));

    // Pulse inverted (the hum is not).
    OscRig freePulse, syncedPulse;
    syncedPulse.sync = zeros;
    syncedPulse.values[kOscSync] = 1.0f;
    for (OscRig* rig : {&freePulse, &syncedPulse}) rig->values[kOscPulseOn] = 1.0f;
    const std::vector<float> a = freePulse.Render(8192), b = syncedPulse.Render(8192);
    for (size_t n = 0; n < a.size(); ++n) ASSERT_NEAR(b[n], -a[n], 1e-4) << n;

    // Triangle: the decimated oversampled triangle (+-0.5) times 0.56.
    OscRig tri(44100.0f, 57);
    tri.sync = zeros;
    tri.values[kOscSync] = 1.0f;
    tri.values[kOscTriangleOn] = 1.0f;
    tri.values[kOscVolume] = 1.0f / 1.68f;
    const std::vector<float> t = tri.Render(44100);
    const auto [lo, hi] = std::minmax_element(t.begin() + 4410, t.end());
    EXPECT_NEAR(*hi, 0.5 * 0.56, 0.005);
    EXPECT_NEAR(*lo, -0.5 * 0.56, 0.005);
    EXPECT_NEAR(MeasureFrequency(t, 44100.0),
                FastPow2(kSemitone * StaticPitch(12.0f / 63.0f)) * NoteFrequencies()[45], 0.5);
}

// Normalised autocorrelation at a lag.
double Correlation(const std::vector<float>& y, size_t lag, size_t from) {
    double xy = 0.0, xx = 0.0, yy = 0.0;
    for (size_t n = from; n + lag < y.size(); ++n) {
        xy += double(y[n]) * y[n + lag];
        xx += double(y[n]) * y[n];
        yy += double(y[n + lag]) * y[n + lag];
    }
    return xy / std::sqrt(xx * yy);
}

TEST(OscillatorSync, SlaveRepeatsWithTheMasterPeriod) {
    // Voice wiring: the master's auxiliary output feeds the slave's sync input.
    OscRig master(44100.0f, 69), slave(44100.0f, 69);
    master.values[kOscMaster] = 1.0f;
    slave.values[kOscSync] = 1.0f;
    slave.values[kOscSawOn] = 1.0f;
    slave.values[kOscFreq] = 19.0f / 63.0f; // seven semitones above the master
    slave.sync = master.aux;
    std::vector<float> y;
    for (int b = 0; b < 2000; ++b) {
        master.Block();
        slave.Block();
        y.insert(y.end(), slave.audio, slave.audio + kBlockSize);
    }
    const double masterFreq = FastPow2(kSemitone * StaticPitch(12.0f / 63.0f)) * 220.0;
    const double slaveFreq = FastPow2(kSemitone * StaticPitch(19.0f / 63.0f)) * 220.0;
    const size_t masterLag = static_cast<size_t>(std::lround(44100.0 / masterFreq));
    const size_t slaveLag = static_cast<size_t>(std::lround(44100.0 / slaveFreq));
    EXPECT_GT(Correlation(y, masterLag, 4410), 0.9);
    EXPECT_LT(Correlation(y, slaveLag, 4410), 0.5);
}

TEST(OscillatorOutputs, MasterSendsSyncPulsesAtEveryWrap) {
    OscRig rig(44100.0f, 69);
    rig.values[kOscMaster] = 1.0f;
    const std::vector<float> aux = rig.Render(44100, true);
    size_t pulses = 0;
    for (float v : aux) {
        ASSERT_TRUE(v == 0.0f || v == 0.5f);
        pulses += v == 0.5f;
    }
    const double f = FastPow2(kSemitone * StaticPitch(12.0f / 63.0f)) * 220.0;
    EXPECT_NEAR(double(pulses), f, 1.0);
}

TEST(OscillatorOutputs, FmTriangleScaledByStaticFrequency) {
    float active[kBlockSize];
    OscRig::Fill(active, 1.0f);
    {
        // Not master: triangle (+-0.5) * staticFreq * 1.6 * 0.001.
        OscRig rig(44100.0f, 57);
        rig.fmActive = active;
        const std::vector<float> aux = rig.Render(44100, true);
        const double f = FastPow2(kSemitone * StaticPitch(12.0f / 63.0f)) * 110.0;
        const auto [lo, hi] = std::minmax_element(aux.begin() + 4410, aux.end());
        EXPECT_NEAR(*hi, 0.5 * f * 0.0016, 0.01 * 0.5 * f * 0.0016);
        EXPECT_NEAR(*lo, -0.5 * f * 0.0016, 0.01 * 0.5 * f * 0.0016);
    }
    {
        // Without the FM-active input the triangle does not run.
        OscRig rig(44100.0f, 57);
        for (float v : rig.Render(4410, true)) ASSERT_EQ(v, 0.0f);
    }
    {
        // Master with the triangle on: the audio triangle is the FM triangle * 0.525.
        OscRig rig(44100.0f, 57);
        rig.fmActive = active;
        rig.values[kOscMaster] = 1.0f;
        rig.values[kOscTriangleOn] = 1.0f;
        rig.values[kOscVolume] = 1.0f / 1.68f;
        const std::vector<float> y = rig.Render(44100);
        const auto [lo, hi] = std::minmax_element(y.begin() + 4410, y.end());
        EXPECT_NEAR(*hi, 0.5 * 0.525, 0.005);
        EXPECT_NEAR(*lo, -0.5 * 0.525, 0.005);
    }
}

// ---------------------------------------------------------------- voice gate, contract

TEST(OscillatorVoiceGate, InactiveVoiceIsSilentAndKeepsItsPhaseRunning) {
    OscRig rig;
    rig.values[kOscSawOn] = 1.0f;
    rig.voices.activeVoices = 0;
    OscRig::Fill(rig.audio, 7.0f);
    OscRig::Fill(rig.aux, 3.0f);
    // First call, rate not seen yet: 440 Hz base from phase 1.0 at 44.1 kHz.
    ASSERT_EQ(rig.Block(), kProcessOk);
    for (int n = 0; n < kBlockSize; ++n) {
        EXPECT_EQ(rig.audio[n], 0.0f);
        EXPECT_EQ(rig.aux[n], 3.0f);
    }
    double phase = 1.0;
    for (int n = 0; n < kBlockSize; ++n) {
        phase += 440.0 / 44100.0;
        if (phase >= 1.0) phase -= 1.0;
    }
    EXPECT_NEAR(rig.osc.phase, phase, 1e-5);
    EXPECT_TRUE(std::isfinite(rig.osc.phase));

    // Once played, the base is the key's note and the phase runs at it.
    rig.voices.activeVoices = 1;
    rig.Block();
    rig.voices.activeVoices = 0;
    const double start = rig.osc.phase;
    for (int b = 0; b < 10; ++b) rig.Block();
    const double advance = 10 * kBlockSize * NoteFrequencies()[69] / 44100.0;
    EXPECT_NEAR(rig.osc.phase, std::fmod(start + advance, 1.0), 1e-4);

    // runAnyway renders an inactive voice.
    rig.Block(true);
    EXPECT_TRUE(std::any_of(rig.audio, rig.audio + kBlockSize, [](float v) { return v != 0.0f; }));
}

TEST(OscillatorVoiceGate, MissingVoiceStateOrVoice) {
    OscRig rig;
    rig.values[kOscSawOn] = 1.0f;
    rig.ctx.voiceState = nullptr;
    OscRig::Fill(rig.audio, 7.0f);
    EXPECT_EQ(rig.Block(), kProcessOk);
    EXPECT_EQ(rig.audio[0], 7.0f);
    EXPECT_EQ(rig.osc.sawOn, 1.0f); // the refresh still happens

    OscRig unassigned;
    Init(unassigned.osc, -1);
    EXPECT_EQ(unassigned.Block(), kProcessMissing);
}

TEST(OscillatorVoiceGate, ExtremeInputsStayFinite) {
    OscRig rig;
    for (size_t p : {kOscSawOn, kOscPulseOn, kOscNoiseOn}) rig.values[p] = 1.0f;
    rig.values[kOscTriangleOn] = 1.0f;
    OscRig::Fill(rig.pitch, 1e30f);
    OscRig::Fill(rig.pulseWidth, std::nanf(""));
    OscRig::Fill(rig.jitter, -1e30f);
    for (int b = 0; b < 100; ++b) {
        rig.Block();
        for (float v : rig.audio) ASSERT_TRUE(std::isfinite(v));
    }
}

} // namespace
