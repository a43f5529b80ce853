#include "engine_harness.h"
#include "processor/modules/lfo.h"
#include "processor/modules/voices.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <vector>

using namespace Norvell::Vantor;

namespace {

class LfoTest : public ::testing::Test {
protected:
    void Start(float sampleRate) {
        lfo = LfoState{};
        std::fill(std::begin(values), std::end(values), 0.0f);
        voices = VoiceState{};
        wave.clear(), trig.clear();
        Init(lfo, 0);
        for (uint32_t i = 0; i < kLfoParamCount; ++i) lfo.params.bound[i] = &values[i];
        ctx = {120.0f, sampleRate, kBlockSize, &voices};
        AddVoice(voices.activeVoices, 0);
    }
    void NoteOn() {
        AddVoice(voices.gateVoices, 0);
        AddVoice(voices.triggerVoices, 0);
    }
    // Renders into wave (output 0) and trig (output 1); the source input
    // rises by 0.01 per block.
    void Run(int blocks) {
        for (int b = 0; b < blocks; ++b) {
            float out0[kBlockSize], out1[kBlockSize];
            float* in[3] = {speedMod, ampMod, source};
            float* out[2] = {out0, out1};
            ASSERT_EQ(Process(lfo, in, 3, out, 2, ctx), kProcessOk);
            wave.insert(wave.end(), out0, out0 + kBlockSize);
            trig.insert(trig.end(), out1, out1 + kBlockSize);
            RemoveVoice(voices.triggerVoices, 0);
            for (float& s : source) s += 0.01f;
        }
    }
    // Hz, from the phase output's slope over its first n samples.
    double MeasuredRate(int n) const { return (trig[n] - trig[0]) / n * ctx.sampleRate; }
    std::vector<size_t> Pulses() const {
        std::vector<size_t> at;
        for (size_t n = 0; n < trig.size(); ++n)
            if (trig[n] == 1.0f) at.push_back(n);
        return at;
    }

    LfoState lfo;
    float values[kLfoParamCount] = {}; // amp 0: the amplitude input sets the factor
    VoiceState voices;
    ProcessContext ctx;
    float speedMod[kBlockSize] = {}, ampMod[kBlockSize] = {}, source[kBlockSize] = {};
    std::vector<float> wave, trig;
};

TEST_F(LfoTest, RatesFromSpeedTableAndTempoDivisions) {
    // {sync, speed or synced_speed, modulation, Hz}: table ends, breakpoint
    // 55, clamped sums; 5/12 at 120 bpm is (1/60) 120 = 2 Hz, and 5/12 +
    // 0.042 rounds to division 6 (1/45).
    const float cases[][4] = {{0, 0.0f, 0.0f, 0.0373f},      {0, 1.0f, 0.0f, 27.59f},
                              {0, 55 / 63.0f, 0, 5.555556f}, {0, 0.5f, 1.0f, 27.59f},
                              {0, 0.5f, -1.0f, 0.0373f},     {1, 5 / 12.0f, 0.0f, 2.0f},
                              {1, 5 / 12.0f, 0.04f, 2.0f},   {1, 5 / 12.0f, 0.042f, 120 / 45.0f}};
    for (const auto& c : cases) {
        Start(1000.0f);
        values[c[0] != 0 ? kLfoSyncedSpeed : kLfoSpeed] = c[1];
        values[kLfoSync] = c[0];
        std::fill(speedMod, speedMod + kBlockSize, c[2]);
        Run(20);
        EXPECT_NEAR(MeasuredRate(c[3] < 1.0f ? 600 : 30), c[3], c[3] * 1e-4)
            << c[1] << " + " << c[2];
    }
}

TEST_F(LfoTest, TriangleStartsLowAndPeaksWhereTriggerCrossesZero) {
    Start(1000.0f);
    values[kLfoSpeed] = 1.0f;
    values[kLfoAmp] = 0.5f;
    std::fill(ampMod, ampMod + kBlockSize, 0.7f); // clamped to 1
    Run(2);
    const double inc = 27.59 / 1000.0;
    EXPECT_NEAR(wave[0], -0.5 + 2 * inc, 1e-5);
    size_t n = 1;
    while (!(trig[n - 1] < 0.0f && trig[n] >= 0.0f)) ++n;
    EXPECT_NEAR(n, 0.5 / inc, 1.0);
    EXPECT_NEAR(wave[n], 0.5 - 2.0 * trig[n], 1e-6);
}

TEST_F(LfoTest, RetriggerPointAndLegatoMode) {
    // retrig_point 0 sets phase 0, 0.75 sets -0.25; retrig_mode 0.5 resets
    // only when no key was held.
    for (const auto& [point, phase] : {std::pair{0.0f, 0.0}, {0.75f, -0.25}}) {
        Start(1000.0f);
        values[kLfoSpeed] = 0.5f;
        values[kLfoRetrigMode] = 0.5f;
        values[kLfoRetrigPoint] = point;
        const auto first = [&] { return trig[trig.size() - kBlockSize]; };
        Run(2);
        const double reset = phase + lfo.rate[0] / 1000.0;
        NoteOn();
        Run(1);
        EXPECT_NEAR(first(), reset, 1e-6);
        Run(2);
        NoteOn(); // legato
        Run(1);
        EXPECT_GT(first() - reset, 0.05);
        RemoveVoice(voices.gateVoices, 0);
        Run(1);
        NoteOn();
        Run(1);
        EXPECT_NEAR(first(), reset, 1e-6);
    }
}

TEST_F(LfoTest, SawJumpsBecome32SampleRamps) {
    const double inc = 27.59f / 1000.0f;
    for (int w : {2, 3}) { // rising, falling saw
        Start(1000.0f);
        values[kLfoSpeed] = 1.0f;
        values[kLfoAmp] = 1.0f;
        values[kLfoWave] = (w + 0.5f) / 6.0f;
        Run(6);
        size_t wrap = 40;
        while (trig[wrap] > trig[wrap - 1]) ++wrap;
        const auto shape = [&](size_t n) { return w == 2 ? trig[n] : -trig[n]; };
        const double prev = shape(wrap - 1), jump = shape(wrap) - prev;
        const double step = w == 2 ? (jump - 31 * inc) / 32 : jump / 32 + 0.96875 * inc;
        for (int k = 0; k < 32; ++k) ASSERT_NEAR(wave[wrap + k], prev + (k + 1) * step, 1e-5) << k;
        EXPECT_EQ(wave[wrap + 32], shape(wrap + 32));
    }
}

TEST_F(LfoTest, WaveSelectorTruncatesAndWave6SamplesTheKey) {
    // wave 0.999 is wave 5: a step every ceil(0.0070501976 * rate) + 1 samples.
    Start(44100.0f);
    values[kLfoWave] = 0.999f;
    Run(40);
    std::vector<size_t> at = Pulses();
    ASSERT_EQ(at.size(), 4u);
    EXPECT_EQ(at[3] - at[2], std::ceil(0.0070501976 * 44100.0) + 1);
    // wave 1.0 is wave 6; input_selector 6/28 is the key, held between steps
    // and averaged over the step sample.
    Start(1000.0f);
    values[kLfoWave] = 1.0f;
    values[kLfoSpeed] = 1.0f;
    values[kLfoAmp] = 1.0f;
    values[kLfoInputSelector] = 6.5f / 28.0f;
    for (int n = 0; n < kBlockSize; ++n) source[n] = (60.0f + n) / 127.0f;
    Run(6);
    EXPECT_EQ(lfo.inputIndex, 6);
    at = Pulses();
    ASSERT_EQ(at.size(), 5u);
    EXPECT_EQ(at[0], std::ceil(1000.0 / 27.59));
    EXPECT_EQ(at[1] - at[0], std::ceil(1000.0 / 27.59) + 1);
    const auto key = [](size_t n) { return (60.0f + n % 32) / 127.0f + 0.01f * (n / 32); };
    EXPECT_NEAR(wave[at[1]], (key(at[0]) + key(at[1])) * 0.5f, 1e-6);
    EXPECT_NEAR(wave[at[1] + 1], key(at[1]), 1e-6);
}

// Through the whole engine: a sawtooth voice whose pitch shows LFO 1's rate,
// and a glide that takes the lag table's time.
struct PitchPoint {
    double seconds, hz;
};

// Pitch from the periods between upward zero crossings of the saw.
std::vector<PitchPoint> PitchTrack(const std::vector<float>& x, double rate) {
    std::vector<PitchPoint> track;
    double last = -1.0;
    for (size_t n = 1; n < x.size(); ++n) {
        if (!(x[n - 1] < 0.0f && x[n] >= 0.0f)) continue;
        const double t = n - 1 + x[n - 1] / (x[n - 1] - x[n]);
        if (last >= 0.0) track.push_back({t / rate, rate / (t - last)});
        last = t;
    }
    return track;
}

void SawVoice(VantorTest::EngineHarness& h) {
    h.SetupSingleVoicePatch();
    h.Set("voice1_osc1_saw-on", 1.0f);
    h.Set("voice1_osc1_keyboard_follow", 1.0f);
    h.Set("voice1_osc1_freq", 12.0f / 63.0f);
    h.Set("voice1_osc1_detune", 0.5f);
    h.Set("voice1_osc1_volume", 0.6f);
    h.Set("voice1_vcf_type", 3.5f / 15.0f);
    h.Set("voice1_vcf_cutoff", 1.0f);
}

TEST(LfoHost, VoicePitchFollowsLfo1AtItsSpeed) {
    VantorTest::EngineHarness h(44100.0f);
    SawVoice(h);
    h.Set("voice1_lfo1_speed", 40.0f / 63.0f); // 1.7918899 Hz
    h.Set("voice1_lfo1_amp", 0.1f);
    h.Set("voice1_matrix1_src", 16.5f / 28.0f);
    h.Set("voice1_matrix1_dest", 1.5f / 48.0f); // oscillator 1 pitch
    h.Set("voice1_matrix1_amount", 1.0f);
    h.NoteOn(69);
    const std::vector<PitchPoint> track = PitchTrack(h.RenderBlocks(4200).left, 44100.0);
    std::vector<double> rises; // the pitch passing 440 Hz upwards
    for (size_t i = 1; i < track.size(); ++i)
        if (track[i - 1].hz < 440.0 && track[i].hz >= 440.0) rises.push_back(track[i].seconds);
    ASSERT_GE(rises.size(), 4u);
    EXPECT_NEAR((rises.back() - rises[1]) / (rises.size() - 2), 1.0 / 1.7918899, 0.002);
}

TEST(LfoHost, EqualTimeGlideTakesTheLagTableTime) {
    // Breakpoint 20 of the equal-time table: 0.125 s from key 48 to key 60.
    // The oscillator rounds the gliding key, so 60 sounds from 11.5/12 of it.
    VantorTest::EngineHarness h(44100.0f);
    SawVoice(h);
    h.Set("voice1_osc1_lag_on", 1.0f);
    h.Set("voice1_lag_input_selector", 6.5f / 28.0f);
    h.Set("voice1_lag_rate", 20.0f / 63.0f);
    h.Set("voice1_lag_is_linear", 1.0f);
    h.Set("voice1_lag_equal_time", 1.0f);
    h.NoteOn(48);
    const double key60 = 440.0 * std::pow(2.0, -9.0 / 12.0);
    EXPECT_NEAR(PitchTrack(h.RenderBlocks(400).left, 44100.0).back().hz, key60 / 2, 0.5);
    h.NoteOff(48);
    h.NoteOn(60);
    const std::vector<PitchPoint> track = PitchTrack(h.RenderBlocks(300).left, 44100.0);
    double reached = 0.0;
    for (const PitchPoint& p : track)
        if (std::fabs(p.hz / key60 - 1.0) > 0.01) reached = p.seconds;
    EXPECT_NEAR(reached, 0.125 * 11.5 / 12.0, 0.005);
}

} // namespace
