#include "module_rig.h"
#include "processor/modules/oscillator.h"

#include "dsp/fastmath.h"
#include "processor/modules/voices.h"
#include "tools/steptable/steptablegen.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <vector>

using namespace Norvell::Vantor;
using Norvell::dsp::FastPow2;
using Norvell::dsp::NoteFrequencies;
using VantorTest::BindAll;

namespace {

constexpr float kSemitone = 0.083213426f;

// One oscillator of voice 0 on `key` with centred tuning; buf[i] feeds input i when connected.
struct OscRig {
    OscillatorState osc;
    float values[kOscParamCount] = {};
    VoiceState voices;
    ProcessContext ctx;
    float buf[kOscInputCount][kBlockSize] = {}, aux[kBlockSize] = {}, audio[kBlockSize] = {};
    float* in[kOscInputCount] = {buf[0], buf[1], buf[2],  nullptr, nullptr,
                                 buf[5], buf[6], nullptr, buf[8],  nullptr};
    explicit OscRig(int key = 81, float rate = 44100.0f) {
        Init(osc, 0);
        BindAll(osc.params, values);
        values[kOscVolume] = values[kOscKeyboardFollow] = 1.0f;
        values[kOscDetune] = 0.5f;
        values[kOscFreq] = 12.0f / 63.0f;
        voices.activeVoices = 1;
        voices.voiceMessage[0] = 0x90u | uint32_t(key) << 8 | 100u << 16;
        ctx.sampleRate = rate;
        ctx.voiceState = &voices;
    }
    void Fill(size_t input, float v) { std::fill_n(in[input] = buf[input], kBlockSize, v); }
    int32_t Block(bool runAnyway = false) {
        osc.tuning = {0.5f, 0.5f, 0.6f};
        float* out[2] = {aux, audio};
        return Process(osc, in, 1, out, 2, ctx, runAnyway);
    }
    std::vector<float> Render(int n) {
        std::vector<float> y;
        while (static_cast<int>(y.size()) < n) {
            Block();
            y.insert(y.end(), audio, audio + kBlockSize);
        }
        return y;
    }
};

struct PitchCase {
    int key = 81;
    float freq = 12.0f / 63.0f, rate = 44100.0f, detune = 0.5f;
    float pitch = 0, vibrato = 0, bend = 0, jitter = 0, linFm = 0;
    float vibratoOn = 0, bendOn = 0, keyFollow = 1; // switches
};

// f = (jitter * 0.189 + FastPow2(0.083213426 m)) * base (+ linear FM * 5000),
// m = clamp(bend * 16/63 + pitch + vibrato * 16/63, -1, 1) * 16 + static pitch P;
// with centred tuning P = detune law - 0.5 + 60 * transpose 0.6 + 63 freq - 36.
double ExpectedFrequency(const PitchCase& c) {
    const float p = DetuneLaw(c.detune) - 0.5f + 60.0f * 0.6f + 63.0f * c.freq - 36.0f;
    const float scale = 16.0f / 63.0f;
    const float mod =
        c.bend * (c.bendOn > 0) * scale + c.pitch + c.vibrato * (c.vibratoOn > 0) * scale;
    const float m = std::clamp(mod, -1.0f, 1.0f) * 16.0f + p;
    const double base = c.keyFollow == 0 ? 16.0 : c.key < 12 ? 0.0 : NoteFrequencies()[c.key - 12];
    const double f = (c.jitter * 0.006 * 0.5 * 63 + FastPow2(kSemitone * m)) * base;
    return std::clamp(f + c.linFm * 5000.0, 20.0, 16000.0);
}

TEST(Oscillator, FrequencyFollowsThePitchLaw) {
    const PitchCase cases[] = {
        {},                                              // key 81: FastPow2(0.998) * 440, not 880
        {.key = 45, .rate = 48000.0f},                   // the rate reaches the phase increment
        {.key = 60, .freq = 0.5f, .rate = 96000.0f},     // and at 96 kHz
        {.detune = 0.25f},                               // detune between law points
        {.key = 69, .pitch = -3.0f},                     // clamped to -16 semitones
        {.key = 69, .vibrato = 0.5f, .vibratoOn = 0.1f}, // switches above 0 are on
        {.key = 69, .pitch = 0.1f, .bend = -0.4f, .bendOn = 1},
        {.key = 69, .bend = 0.4f},       // bend switch off
        {.key = 69, .jitter = 0.2f},     // jitter added to the exponential
        {.key = 69, .linFm = 0.02f},     // +100 Hz
        {.key = 5, .freq = 0.5f},        // below key 12: clamped to 20 Hz
        {.freq = 1.0f, .keyFollow = 0}}; // 16 Hz base
    for (const PitchCase& c : cases) {
        SCOPED_TRACE(testing::Message() << "key " << c.key << " expected " << ExpectedFrequency(c));
        OscRig rig(c.key, c.rate);
        const size_t ids[] = {kOscFreq, kOscDetune, kOscVibrato, kOscPitchbend, kOscKeyboardFollow};
        const float params[] = {c.freq, c.detune, c.vibratoOn, c.bendOn, c.keyFollow};
        for (int i = 0; i < 5; ++i) rig.values[ids[i]] = params[i];
        rig.values[kOscSawOn] = 1.0f;
        const size_t inputs[] = {kOscInPitch, kOscInVibrato, kOscInPitchbend, kOscInJitter,
                                 kOscInLinearFm};
        const float values[] = {c.pitch, c.vibrato, c.bend, c.jitter, c.linFm};
        for (int i = 0; i < 5; ++i) rig.Fill(inputs[i], values[i]);
        rig.Block();
        const double start = rig.osc.phase;
        rig.Block(); // one block of phase increments f / rate (below 1 in all)
        const double f = std::fmod(rig.osc.phase - start + 1.0, 1.0) * c.rate / kBlockSize;
        EXPECT_NEAR(f, ExpectedFrequency(c), 0.5);
    }
}

// Pitch modulation that moves inside a block: every sample takes its own
// frequency, also when the pitch returns to an earlier value.
TEST(Oscillator, FrequencyFollowsAPitchThatMovesWithinTheBlock) {
    OscRig rig(69);
    rig.values[kOscSawOn] = 1.0f;
    for (int i = 0; i < kBlockSize; ++i) rig.buf[kOscInPitch][i] = i < 12 || i >= 24 ? 0.0f : 0.25f;
    rig.Block();
    for (int i = 0; i < kBlockSize; ++i) {
        PitchCase c{.key = 69, .pitch = rig.buf[kOscInPitch][i]};
        EXPECT_NEAR(rig.osc.freqBuffer[i], ExpectedFrequency(c), 1e-3) << i;
    }
    EXPECT_NE(rig.osc.freqBuffer[11], rig.osc.freqBuffer[12]);
    EXPECT_EQ(rig.osc.freqBuffer[11], rig.osc.freqBuffer[24]);
}

TEST(Oscillator, StepTableHasTheListedPointsAndIsTheGeneratorOutput) {
    const float* table = StepTable();
    const std::pair<int, float> points[] = {
        {0, 0.000024f},    {64, 0.066657f},   {128, 0.554626f},  {192, 1.169903f},
        {208, 1.2008890f}, {256, 1.005473f},  {295, 0.8809243f}, {512, 1.039374f},
        {768, 0.980753f},  {1024, 0.991836f}, {1536, 1.001029f}, {2047, 0.9999994f}};
    for (const auto& [entry, value] : points) EXPECT_NEAR(table[entry], value, 0.002f) << entry;
    const std::vector<double> generated = Norvell::Vantor::Tools::GenerateStepTable();
    ASSERT_EQ(generated.size(), static_cast<size_t>(kStepTableLength));
    for (int i = 0; i < kStepTableLength; ++i) ASSERT_NEAR(table[i], generated[i], 1e-6) << i;
    EXPECT_EQ(generated.back(), 1.0);
}

TEST(Oscillator, DetuneAndPulseWidthLawsAtAndBetweenTheirPoints) {
    const float dx[] = {0.0f, 0.16129032f, 0.32258064f, 0.5f, 0.67741936f, 0.83870965f, 1.0f};
    const float dy[] = {0.0f, 0.276f, 0.444f, 0.5f, 0.544f, 0.724f, 1.0f};
    for (int i = 0; i < 7; ++i) EXPECT_NEAR(DetuneLaw(dx[i]), dy[i], 1e-6f) << dx[i];
    for (int i = 0; i < 6; ++i) {
        const float x = 0.7f * dx[i] + 0.3f * dx[i + 1];
        EXPECT_NEAR(DetuneLaw(x), 0.7f * dy[i] + 0.3f * dy[i + 1], 2e-6f) << x;
    }
    EXPECT_EQ(DetuneLaw(1.01f), 0.0f); // beyond the last point
    const int px[] = {0, 10, 20, 31, 40, 50, 60, 63};
    const float py[] = {0.07786905f, 0.2163280f,  0.36512917f, 0.49767828f,
                        0.65670204f, 0.79429406f, 0.945502f,   0.9835f};
    for (int i = 0; i < 8; ++i) EXPECT_NEAR(PulseWidthLaw(px[i] / 63.0f), py[i], 1e-6f) << px[i];
    for (int i = 0; i < 7; ++i) {
        const float p = 0.75f * px[i] + 0.25f * px[i + 1];
        EXPECT_NEAR(PulseWidthLaw(p / 63.0f), 0.75f * py[i] + 0.25f * py[i + 1], 2e-6f) << p;
    }
}

TEST(Oscillator, SwitchesNeedExactlyOneOrAboveZero) {
    const auto peak = [](float pulse, float saw, float triangle, float noise) {
        OscRig rig;
        const float on[] = {pulse, saw, triangle, noise}; // adjacent parameters
        std::copy(on, on + 4, rig.values + kOscPulseOn);
        double p = 0.0;
        for (float v : rig.Render(4410)) p = std::max(p, double(std::fabs(v)));
        return p;
    };
    EXPECT_EQ(peak(0.99f, 0.9f, 0.0f, 0.5f), 0.0);
    EXPECT_GT(peak(1.0f, 0.0f, 0.0f, 0.0f), 0.1);
    EXPECT_GT(peak(0.0f, 1.0f, 0.0f, 0.0f), 0.1);
    EXPECT_GT(peak(0.0f, 0.0f, 0.1f, 0.0f), 0.2);
    EXPECT_GT(peak(0.0f, 0.0f, 0.0f, 1.0f), 0.05);
}

TEST(Oscillator, NoiseIsZeroMeanAtItsFilteredLevel) {
    OscRig rig;
    rig.values[kOscNoiseOn] = 1.0f;
    const std::vector<float> y = rig.Render(441000);
    // Uniform -1..1 (variance 1/3) through the 10 kHz one-pole (a / (2 - a)), x 0.108 x 1.68.
    const double a = 1.0 - std::exp(-62831.855 / 44100.0);
    const double rms = std::sqrt(a / (2.0 - a) / 3.0) * 0.108 * 1.68;
    double power = 0.0, sum = 0.0;
    for (float v : y) power += double(v) * v, sum += v;
    EXPECT_NEAR(std::sqrt(power / double(y.size())), rms, 0.03 * rms);
    EXPECT_NEAR(sum / double(y.size()), 0.0, 0.01 * rms);
}

// Worst FFT line away from the harmonics, in dB below the fundamental;
// 4-term Blackman-Harris window over the last 65536 samples.
double AliasLevelDb(const std::vector<float>& y, double f0) {
    const size_t n = 65536;
    std::vector<std::complex<double>> a(n);
    for (size_t i = 0; i < n; ++i) {
        const double t = 2.0 * M_PI * double(i) / double(n);
        a[i] = y[y.size() - n + i] * (0.35875 - 0.48829 * std::cos(t) + 0.14128 * std::cos(2 * t) -
                                      0.01168 * std::cos(3 * t));
    }
    Norvell::Vantor::Tools::Fft(a, false);
    const double binHz = 44100.0 / double(n);
    double fundamental = 0.0, worst = 0.0;
    for (size_t b = 1; b < n / 2; ++b) {
        const double f = double(b) * binHz, level = std::abs(a[b]);
        if (std::fabs(f - f0) <= 8.0 * binHz) fundamental = std::max(fundamental, level);
        if (f < 40.0 || std::fabs(f - std::round(f / f0) * f0) <= 8.0 * binHz) continue;
        worst = std::max(worst, level);
    }
    return 20.0 * std::log10(fundamental / worst);
}

TEST(Oscillator, SawtoothAliasingStaysFarBelowTheFundamental) {
    for (int key : {84, 111}) { // about 1 kHz and 5 kHz
        OscRig rig(key);
        rig.values[kOscSawOn] = 1.0f;
        const double f0 = ExpectedFrequency({.key = key});
        EXPECT_GT(AliasLevelDb(rig.Render(65536 + 4096), f0), 70.0) << key; // was 77.6, 74.1 dB
    }
}

TEST(Oscillator, HardSyncWithSilentSyncInput) {
    const auto render = [](bool synced, size_t wave) {
        OscRig rig;
        rig.Fill(kOscInSync, 0.0f);
        rig.values[kOscSync] = synced;
        rig.values[wave] = 1.0f;
        return rig.Render(44100);
    };
    // The sawtooth of the free-running core, an inverted pulse.
    EXPECT_EQ(render(false, kOscSawOn), render(true, kOscSawOn));
    const std::vector<float> a = render(false, kOscPulseOn), b = render(true, kOscPulseOn);
    for (size_t n = 0; n < a.size(); ++n) ASSERT_NEAR(b[n], -a[n], 1e-4) << n;
}

TEST(Oscillator, InactiveVoiceIsSilentAndKeepsItsPhaseRunning) {
    OscRig rig;
    rig.values[kOscSawOn] = 1.0f;
    rig.Block(); // once played, the phase runs on at the key's base frequency
    rig.voices.activeVoices = 0;
    std::fill_n(rig.audio, kBlockSize, 7.0f);
    const double start = rig.osc.phase;
    for (int b = 0; b < 10; ++b) ASSERT_EQ(rig.Block(), kProcessOk);
    EXPECT_TRUE(std::all_of(rig.audio, rig.audio + kBlockSize, [](float v) { return v == 0; }));
    EXPECT_NEAR(rig.osc.phase, std::fmod(start + 320 * NoteFrequencies()[69] / 44100.0, 1.0), 1e-4);
    rig.Block(true); // runAnyway renders it
    EXPECT_TRUE(std::any_of(rig.audio, rig.audio + kBlockSize, [](float v) { return v != 0; }));
}

TEST(Oscillator, RestingPhasesAdvanceTogetherAsEachAlone) {
    // Five oscillators (a group of four and one left over) at different
    // frequencies and phases, one about to wrap: each lane must follow the
    // plain float loop of its own oscillator.
    OscillatorState states[5];
    OscillatorState* group[5];
    for (int i = 0; i < 5; ++i) {
        states[i].invRate = 1.0f / 48000.0f;
        states[i].baseFreq = 55.0f * static_cast<float>(1 << i) + 0.3f * static_cast<float>(i);
        states[i].phase = i == 3 ? 0.999f : 0.17f * static_cast<float>(i);
        group[i] = &states[i];
    }
    float expected[5];
    for (int i = 0; i < 5; ++i) {
        float phase = states[i].phase;
        const float inc = states[i].invRate * states[i].baseFreq;
        for (int n = 0; n < 3 * kBlockSize; ++n) {
            phase += inc;
            if (phase >= 1.0f) phase -= 1.0f;
        }
        expected[i] = phase;
    }
    for (int b = 0; b < 3; ++b) AdvanceResting(group, 5);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(states[i].phase, expected[i]) << i;
}

} // namespace

// A step d samples back: j = floor(64 d), t = 64 d - j, tap q while
// j + 64 q < 2047 adds h (b - 1) rising or h (1 - b) falling, b read with
// linear interpolation. d above 1 reads further in; from 32 on there are no taps.
TEST(Oscillator, StepInsertionFollowsTheTableForAnyDistance) {
    const float* table = StepTable();
    for (float d : {0.0f, 0.3f, 1.0f, 1.7f, 5.25f, 31.99f, 32.0f, 40.0f}) {
        for (bool rising : {true, false}) {
            float ring[kRingSize] = {};
            InsertStep(ring, 60, d, 0.75f, rising);
            float expected[kRingSize] = {};
            const int j = static_cast<int>(std::floor(64.0f * d));
            const float t = 64.0f * d - static_cast<float>(j);
            for (int q = 0; q < 32 && j + 64 * q < 2047; ++q) {
                const float b = (1.0f - t) * table[j + 64 * q] + t * table[j + 64 * q + 1];
                expected[(60 + q) % kRingSize] = rising ? 0.75f * (b - 1.0f) : 0.75f * (1.0f - b);
            }
            for (int r = 0; r < kRingSize; ++r)
                ASSERT_FLOAT_EQ(ring[r], expected[r]) << "d " << d << " slot " << r;
        }
    }
}

namespace {

// The sawtooth, pulse and triangle paths written from the algorithm in f32: both
// cores, the correction rings, the hum, the output stage and the oversampled triangle.
struct OscModel {
    float phase = 1.0f, pulseLevel = 0.5f, squareLevel = 0.5f, triPhase = 0.0f;
    float saw[kRingSize] = {}, pulse[kRingSize] = {}, square[kRingSize] = {};
    int w = 0;
    float y = 0, acc = 0, accPrev = 0, bp = 0, lp = 0, prevStatic = 0, odd1 = 0, odd2 = 0;
    float hum[kBlockSize], invRate, smooth, g;
    explicit OscModel(float rate)
        : invRate(1.0f / rate), smooth(1.0f - std::exp(-62831.855f / rate)),
          g(std::tan(31.415928f / rate)) {
        float h = 0.0f;
        for (float& v : hum) {
            const float x = std::sin(h) * 72.2f + 35.8f;
            v = std::clamp(x * (x * x + 27.0f) / (9.0f * x * x + 27.0f), -1.0f, 1.0f) *
                0.009135802f * 0.01f;
            for (h += invRate * 703.7168f; h > 6.2831855f;) h -= 6.2831855f;
        }
    }
    float Triangle(float inc) { // four sub-samples, two half-band stages
        float t[4];
        for (float& v : t) {
            triPhase += inc / 4.0f;
            if (triPhase >= 1.0f) triPhase -= 1.0f;
            v = (triPhase > 0.5f ? 2.0f * (1.0f - triPhase) : 2.0f * triPhase) - 0.5f;
        }
        const float o0 = 0.25f * odd1 + 0.5f * t[0] + 0.25f * t[1];
        const float o1 = 0.25f * t[1] + 0.5f * t[2] + 0.25f * t[3];
        odd1 = t[3];
        const float r = 0.25f * odd2 + 0.5f * o0 + 0.25f * o1;
        odd2 = o1;
        return r;
    }
    struct Setup {
        float freq, pulseBase;
        bool hardSync, master, sawOn, pulseOn, triOn, fmActive;
    };
    void Block(const Setup& c, const float* pwm, const float* sync, float* audio, float* aux) {
        for (int k = 0; k < 32; ++k)
            saw[(w + 32 + k) % 64] = pulse[(w + 32 + k) % 64] = square[(w + 32 + k) % 64] = 0.0f;
        const int start = w;
        const float inc = c.freq * invRate;
        float fmTri[kBlockSize] = {}, syncOut[kBlockSize] = {};
        for (int i = 0; i < kBlockSize; ++i) {
            const float thr = std::clamp(c.pulseBase - 1.232f * pwm[i], 0.0f, 1.0f);
            phase += inc;
            const bool wrapped = phase >= 1.0f;
            if (wrapped) phase -= 1.0f;
            syncOut[i] = wrapped ? 0.5f : 0.0f;
            if (c.hardSync || c.fmActive) fmTri[i] = Triangle(inc);
            if (c.hardSync && sync[i] != 0.0f) {
                const float old = phase;
                phase = inc * sync[i];
                pulseLevel = squareLevel = -0.5f;
                InsertStep(saw, w, phase / inc, old - phase, false);
                InsertStep(pulse, w, phase / inc, old - phase, false);
            }
            if (wrapped && !c.hardSync) {
                if (pulseLevel == -0.5f) InsertStep(pulse, w, (phase + 1.0f - thr) / inc, 1, true);
                if (squareLevel == -0.5f) InsertStep(square, w, (phase + 0.5f) / inc, 1, true);
                InsertStep(square, w, phase / inc, 1.0f, false);
            }
            if (wrapped) {
                InsertStep(saw, w, phase / inc, 1.0f, false);
                InsertStep(pulse, w, phase / inc, 1.0f, false);
                pulseLevel = squareLevel = -0.5f;
            }
            if (!c.hardSync && phase >= 0.5f && squareLevel == -0.5f) {
                InsertStep(square, w, (phase - 0.5f) / inc, 1.0f, true);
                squareLevel = 0.5f;
            }
            if (phase >= thr && pulseLevel == -0.5f) {
                InsertStep(pulse, w, (phase - thr) / inc, 1.0f, true);
                pulseLevel = 0.5f;
            }
            saw[w] += phase - 0.5f;
            pulse[w] += pulseLevel;
            if (c.hardSync) pulse[w] = -pulse[w];
            square[w] += squareLevel;
            w = (w + 1) % 64;
        }
        const float d = g * g + 1.4144272f * g + 1.0f;
        float ramp = prevStatic;
        for (int k = 0; k < kBlockSize; ++k) {
            const int r = (start + k) % 64;
            y += (pulse[r] + hum[k] - y) * smooth;
            float tri = 0.0f;
            if (c.triOn) {
                acc += square[r];
                const float u = acc + accPrev;
                accPrev = acc;
                const float bp1 = ((u - bp * (g + 1.4144272f) - 2.0f * lp) * g + bp) / d;
                const float lp1 = (((u - lp) * g + 2.0f * bp + 1.4144272f * lp) * g + lp) / d;
                const float hp = acc - 1.4144272f * bp1 - lp1;
                bp = bp1, lp = lp1;
                ramp += (c.freq - prevStatic) / 32.0f;
                tri = ramp * 0.00005f * hp;
            }
            if (c.master && c.triOn && c.fmActive) tri = fmTri[k] * 0.525f;
            const float p = c.pulseOn ? y * 0.162f : 0.0f, s = c.sawOn ? saw[r] * 0.317f : 0.0f;
            audio[k] = (tri + p + 0.0f + s) * 1.68f;
            aux[k] = c.master ? syncOut[k] : fmTri[k] * (c.freq * (1.0f + 0.6f)) * 0.001f;
        }
        prevStatic = c.freq;
    }
};

struct WaveCase {
    const char* name;
    float pulseWidth = 0.5f, pwmDepth = 0.0f, rate = 44100.0f, freqParam = 12.0f / 63.0f;
    int pwmPeriod = 0, syncEvery = 0; // PWM: sine, or a square when pwmPeriod < 0
    float syncValue = 0.5f;
    bool sawOn = false, pulseOn = false, triOn = false, master = false, fmActive = false;
};

TEST(Oscillator, WaveformsMatchTheModelSampleBySample) {
    const WaveCase cases[] = {
        {.name = "saw and pulse at 30% width", .pulseWidth = 0.3f, .sawOn = true, .pulseOn = true},
        {.name = "narrow pulse at 48 kHz", .pulseWidth = 0.02f, .rate = 48000.0f, .pulseOn = true},
        {.name = "sine PWM",
         .pwmDepth = 0.3f,
         .freqParam = 0.0f,
         .pwmPeriod = 700,
         .pulseOn = true},
        {.name = "square PWM jumps past the phase",
         .pwmDepth = 0.35f,
         .freqParam = 0.0f,
         .pwmPeriod = -90,
         .pulseOn = true},
        {.name = "PWM driving the threshold to 0",
         .pwmDepth = 1.0f,
         .pwmPeriod = -300,
         .pulseOn = true},
        {.name = "triangle level", .freqParam = 0.0f, .triOn = true},
        {.name = "triangle at 1 kHz with saw", .freqParam = 0.4f, .sawOn = true, .triOn = true},
        {.name = "hard sync before the wrap", .syncEvery = 37, .sawOn = true, .pulseOn = true},
        {.name = "hard sync after a wrap, PWM",
         .pwmDepth = 0.2f,
         .pwmPeriod = 500,
         .syncEvery = 71,
         .syncValue = 0.3f,
         .sawOn = true,
         .pulseOn = true},
        {.name = "master: sync pulses out, FM triangle in",
         .triOn = true,
         .master = true,
         .fmActive = true},
        {.name = "FM triangle on the auxiliary output", .sawOn = true, .fmActive = true},
    };
    for (const WaveCase& c : cases) {
        SCOPED_TRACE(c.name);
        OscRig rig(81, c.rate);
        OscModel model(c.rate);
        rig.values[kOscFreq] = c.freqParam;
        rig.values[kOscPulseWidth] = c.pulseWidth;
        rig.values[kOscSawOn] = c.sawOn, rig.values[kOscPulseOn] = c.pulseOn;
        rig.values[kOscTriangleOn] = c.triOn, rig.values[kOscMaster] = c.master;
        rig.values[kOscSync] = c.syncEvery > 0;
        if (c.fmActive) rig.Fill(kOscInFmActive, 1.0f);
        rig.in[kOscInSync] = rig.buf[kOscInSync];
        const float p = DetuneLaw(0.5f) - 0.5f + 60.0f * 0.6f + 63.0f * c.freqParam - 36.0f;
        const float freq = FastPow2(kSemitone * p) * NoteFrequencies()[69];
        const OscModel::Setup setup{freq,
                                    PulseWidthLaw(c.pulseWidth),
                                    c.syncEvery > 0,
                                    c.master,
                                    c.sawOn,
                                    c.pulseOn,
                                    c.triOn,
                                    c.fmActive};
        int n = 0;
        for (int b = 0; b < 200; ++b) {
            for (int i = 0; i < kBlockSize; ++i, ++n) {
                const double t = 2.0 * M_PI * n / std::abs(c.pwmPeriod ? c.pwmPeriod : 1);
                rig.buf[kOscInPulseWidth][i] = c.pwmPeriod > 0 ? c.pwmDepth * float(std::sin(t))
                                               : c.pwmPeriod < 0
                                                   ? (std::sin(t) >= 0 ? c.pwmDepth : -c.pwmDepth)
                                                   : 0.0f;
                rig.buf[kOscInSync][i] = c.syncEvery && n % c.syncEvery == 5 ? c.syncValue : 0;
            }
            float audio[kBlockSize], aux[kBlockSize];
            model.Block(setup, rig.buf[kOscInPulseWidth], rig.buf[kOscInSync], audio, aux);
            rig.Block();
            for (int i = 0; i < kBlockSize; ++i) {
                ASSERT_NEAR(rig.audio[i], audio[i], 2e-5f) << "sample " << b * 32 + i;
                if (!setup.hardSync) {
                    ASSERT_NEAR(rig.aux[i], aux[i], 1e-5f) << "aux " << b * 32 + i;
                }
            }
        }
    }
}

} // namespace
