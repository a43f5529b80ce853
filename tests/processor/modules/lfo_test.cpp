#include "engine_harness.h"
#include "processor/modules/lfo.h"
#include <gtest/gtest.h>
using namespace Norvell::Vantor;
struct LfoTest : ::testing::Test {
    // A new LFO with these values, the rest 0 (amp 0: the amplitude input rules), run for blocks.
    void Play(float sampleRate, int blocks, std::initializer_list<std::pair<LfoParam, float>> set) {
        lfo = LfoState{}, voices = VoiceState{}, Init(lfo, 0), ctx.sampleRate = sampleRate;
        wave.clear(), trig.clear(), pulses.clear(), std::fill_n(values, kLfoParamCount, 0.0f);
        for (auto [i, v] : set) values[i] = v;
        for (uint32_t i = 0; i < kLfoParamCount; ++i) lfo.params.bound[i] = &values[i];
        Run(blocks);
    }
    void Run(int blocks, bool noteOn = false) { // the source input rises by 0.01 per block
        voices.activeVoices = 1, voices.triggerVoices = noteOn, voices.gateVoices |= noteOn;
        for (int b = 0; b < blocks; ++b, voices.triggerVoices = 0) {
            ASSERT_EQ(Process(lfo, in, 3, out, 2, ctx), kProcessOk);
            for (int n = 0; n < kBlockSize; ++n) {
                if (out[1][n] == 1.0f) pulses.push_back(trig.size());
                wave.push_back(out[0][n]), trig.push_back(out[1][n]), source[n] += 0.01f;
            }
        }
    }
    LfoState lfo;
    VoiceState voices;
    ProcessContext ctx{120.0f, 1000.0f, kBlockSize, &voices};
    float values[kLfoParamCount], speedMod[32] = {}, ampMod[32] = {}, source[32] = {}, o[2][32];
    float *in[3] = {speedMod, ampMod, source}, *out[2] = {o[0], o[1]};
    std::vector<float> wave, trig; // outputs 0 and 1
    std::vector<size_t> pulses;    // where trig is 1
};

TEST_F(LfoTest, RatesAndRetriggerPoints) {
    // {sync, speed, modulation, Hz}: table ends, clamped sums; 5/12 at 120 bpm is 120/60 = 2 Hz,
    // and 5/12 + 0.042 rounds to division 6 (1/45).
    const float cases[][4] = {{0, 0.0f, 0.0f, 0.0373f},   {0, 1.0f, 0.0f, 27.59f},
                              {0, 0.5f, 1.0f, 27.59f},    {0, 0.5f, -1.0f, 0.0373f},
                              {1, 5 / 12.0f, 0.0f, 2.0f}, {1, 5 / 12.0f, 0.042f, 120 / 45.0f}};
    for (const auto& c : cases) {
        std::fill(speedMod, speedMod + kBlockSize, c[2]);
        Play(1000.0f, 20, {{c[0] != 0 ? kLfoSyncedSpeed : kLfoSpeed, c[1]}, {kLfoSync, c[0]}});
        const int n = c[3] < 1.0f ? 600 : 30; // Hz from the phase output's slope
        EXPECT_NEAR((trig[n] - trig[0]) / n * 1000.0, c[3], c[3] * 1e-4) << c[1] << " + " << c[2];
    }
    for (const auto& [point, phase] : {std::pair{0.0f, 0.0}, {0.75f, -0.25}}) { // retrig points
        Play(1000.0f, 2, {{kLfoSpeed, 0.5f}, {kLfoRetrigMode, 0.5f}, {kLfoRetrigPoint, point}});
        const double reset = phase + lfo.rate[0] / 1000.0;
        Run(1, true);
        EXPECT_NEAR(trig[64], reset, 1e-6);
        Run(2), Run(1, true); // retrig_mode 0.5: a legato key does not reset, one after a gap does
        EXPECT_GT(trig[160] - reset, 0.05);
        voices.gateVoices = 0, Run(1), Run(1, true);
        EXPECT_NEAR(trig[224], reset, 1e-6);
    }
}

TEST_F(LfoTest, ShapesSlewAndSampleAndHold) {
    std::fill(ampMod, ampMod + kBlockSize, 0.7f); // clamped to 1
    Play(1000.0f, 2, {{kLfoSpeed, 1.0f}, {kLfoAmp, 0.5f}});
    const double inc = 27.59 / 1000.0;
    EXPECT_NEAR(wave[0], -0.5 + 2 * inc, 1e-5);
    size_t n = 1;
    while (!(trig[n - 1] < 0.0f && trig[n] >= 0.0f)) ++n;
    EXPECT_NEAR(n, 0.5 / inc, 1.0);
    EXPECT_NEAR(wave[n], 0.5 - 2.0 * trig[n], 1e-6);
    for (int w : {2, 3}) { // rising, falling saw
        Play(1000.0f, 6, {{kLfoSpeed, 1.0f}, {kLfoAmp, 1.0f}, {kLfoWave, (w + 0.5f) / 6.0f}});
        size_t wrap = 40;
        while (trig[wrap] > trig[wrap - 1]) ++wrap;
        const auto shape = [&](size_t n) { return w == 2 ? trig[n] : -trig[n]; };
        const double prev = shape(wrap - 1), jump = shape(wrap) - prev;
        const double step = w == 2 ? (jump - 31 * inc) / 32 : jump / 32 + 0.96875 * inc;
        for (int k = 0; k < 32; ++k) ASSERT_NEAR(wave[wrap + k], prev + (k + 1) * step, 1e-5) << k;
        EXPECT_EQ(wave[wrap + 32], shape(wrap + 32));
    }
    Play(44100.0f, 40, {{kLfoWave, 0.999f}}); // wave 5: a step every ceil(0.0070501976 rate) + 1
    ASSERT_EQ(pulses.size(), 4u);
    EXPECT_EQ(pulses[3] - pulses[2], std::ceil(0.0070501976 * 44100.0) + 1);
    // Wave 1.0 is wave 6: input 6/28, the key, sampled every ceil(rate / 27.59) + 1 and held.
    for (int n = 0; n < kBlockSize; ++n) source[n] = (60.0f + n) / 127.0f;
    Play(1000.0f, 6,
         {{kLfoWave, 1.0f}, {kLfoSpeed, 1.0f}, {kLfoAmp, 1.0f}, {kLfoInputSelector, 6.5f / 28.0f}});
    ASSERT_EQ(pulses.size(), 5u);
    EXPECT_EQ(pulses[0], std::ceil(1000.0 / 27.59));
    EXPECT_EQ(pulses[1] - pulses[0], std::ceil(1000.0 / 27.59) + 1);
    const auto key = [](size_t n) { return (60.0f + n % 32) / 127.0f + 0.01f * (n / 32); };
    EXPECT_NEAR(wave[pulses[1] + 1], key(pulses[1]), 1e-6);
}

// Through the engine: a saw voice's pitch, from zero-crossing periods, follows LFO 1's rate.
TEST(LfoHost, VoicePitchFollowsLfo1AtItsRate) {
    VantorTest::EngineHarness h(44100.0f);
    h.SetupSingleVoicePatch();
    const std::pair<const char*, float> patch[] = {
        // LFO 1 at 1.7918899 Hz on oscillator 1's pitch
        {"osc1_saw-on", 1.0f},       {"osc1_keyboard_follow", 1.0f},
        {"osc1_freq", 12 / 63.0f},   {"osc1_volume", 0.6f},
        {"vcf_type", 3.5f / 15},     {"vcf_cutoff", 1.0f},
        {"lfo1_speed", 40 / 63.0f},  {"lfo1_amp", 0.1f},
        {"matrix1_src", 16.5f / 28}, {"matrix1_dest", 1.5f / 48},
        {"matrix1_amount", 1.0f}};
    for (const auto& [name, value] : patch) h.Set(std::string("voice1_") + name, value);
    h.NoteOn(69);
    const std::vector<float> x = h.RenderBlocks(4200).left;
    std::vector<double> t, rises; // crossings, and the pitch passing 440 Hz upwards, in seconds
    for (size_t n = 1; n < x.size(); ++n)
        if (x[n - 1] < 0 && x[n] >= 0) t.push_back((n - 1 + x[n - 1] / (x[n - 1] - x[n])) / 44100);
    for (size_t i = 2; i < t.size(); ++i)
        if (t[i - 1] - t[i - 2] > 1 / 440.0 && t[i] - t[i - 1] <= 1 / 440.0) rises.push_back(t[i]);
    ASSERT_GE(rises.size(), 4u);
    EXPECT_NEAR((rises.back() - rises[1]) / (rises.size() - 2), 1.0 / 1.7918899, 0.002);
}
