#include "processor/modules/lfo.h"
#include "processor/modules/voices.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace Norvell::Vantor;

namespace {

class LfoTest : public ::testing::Test {
protected:
    void Start(float sampleRate) {
        *this->lfo = LfoState{};
        voices = VoiceState{};
        wave.clear(), trig.clear();
        Init(*lfo, 0);
        for (uint32_t i = 0; i < kLfoParamCount; ++i) lfo->params.bound[i] = &values[i];
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
            ASSERT_EQ(Process(*lfo, in, 3, out, 2, ctx), kProcessOk);
            wave.insert(wave.end(), out0, out0 + kBlockSize);
            trig.insert(trig.end(), out1, out1 + kBlockSize);
            RemoveVoice(voices.triggerVoices, 0);
            for (float& s : source) s += 0.01f;
        }
    }
    // Hz, from the phase output's slope over its longest unbroken rise.
    double MeasuredRate() const {
        size_t best = 0, bestStart = 0, start = 0;
        for (size_t n = 1; n <= trig.size(); ++n) {
            if (n < trig.size() && trig[n] > trig[n - 1]) continue;
            if (n - 1 - start > best) best = n - 1 - start, bestStart = start;
            start = n;
        }
        return (trig[bestStart + best] - trig[bestStart]) / best * ctx.sampleRate;
    }
    std::vector<size_t> Pulses() const {
        std::vector<size_t> at;
        for (size_t n = 0; n < trig.size(); ++n)
            if (trig[n] == 1.0f) at.push_back(n);
        return at;
    }

    std::unique_ptr<LfoState> lfo = std::make_unique<LfoState>();
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
    const float cases[][4] = {{0, 0.0f, 0.0f, 0.0373f},   {0, 1.0f, 0.0f, 27.59f},
                              {0, 55 / 63.0f, 0, 5.555556f}, {0, 0.5f, 1.0f, 27.59f},
                              {0, 0.5f, -1.0f, 0.0373f},     {1, 5 / 12.0f, 0.0f, 2.0f},
                              {1, 5 / 12.0f, 0.04f, 2.0f},   {1, 5 / 12.0f, 0.042f, 120 / 45.0f}};
    for (const auto& c : cases) {
        Start(1000.0f);
        values[c[0] != 0 ? kLfoSyncedSpeed : kLfoSpeed] = c[1];
        values[kLfoSync] = c[0];
        std::fill(speedMod, speedMod + kBlockSize, c[2]);
        Run(40);
        EXPECT_NEAR(MeasuredRate(), c[3], c[3] * 1e-4) << c[1] << " + " << c[2];
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
        const double reset = phase + lfo->rate[0] / 1000.0;
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
    EXPECT_EQ(lfo->inputIndex, 6);
    at = Pulses();
    ASSERT_EQ(at.size(), 5u);
    EXPECT_EQ(at[0], std::ceil(1000.0 / 27.59));
    EXPECT_EQ(at[1] - at[0], std::ceil(1000.0 / 27.59) + 1);
    const auto key = [](size_t n) { return (60.0f + n % 32) / 127.0f + 0.01f * (n / 32); };
    EXPECT_FLOAT_EQ(wave[at[1]], (key(at[0]) + key(at[1])) * 0.5f);
    EXPECT_FLOAT_EQ(wave[at[1] + 1], key(at[1]));
}

TEST_F(LfoTest, RandomStepsGlideOverSampleRateDependentLength) {
    for (float rate : {44100.0f, 48000.0f}) {
        Start(rate);
        values[kLfoWave] = 4.5f / 6.0f;
        values[kLfoSpeed] = 1.0f;
        values[kLfoAmp] = 1.0f;
        values[kLfoLag] = 1.0f;
        Run(110);
        const size_t at = Pulses().at(1);
        const uint32_t length = static_cast<uint32_t>(std::ceil(0.0249433 * rate));
        const double old = wave[at - 1], now = wave[at + length];
        for (uint32_t j : {0u, length / 2, length - 1}) {
            const double c = std::log((j + 130.0) / 130) / std::log((length + 130.0) / 130);
            ASSERT_NEAR(wave[at + j], old >= now ? (1 - c) * (old - now) + now : now * c, 2e-6)
                << rate << " " << j;
        }
    }
}

} // namespace
