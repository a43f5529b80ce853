#include "dsp/random.h"
#include "engine_harness.h"
#include "module_rig.h"
#include "processor/modules/lfo.h"
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
using namespace Norvell::Vantor;
using VantorTest::BindAll;
struct LfoTest : ::testing::Test {
    // A new LFO with these values, the rest 0 (amp 0: the amplitude input rules), run for blocks.
    void Play(float sampleRate, int blocks, std::initializer_list<std::pair<LfoParam, float>> set) {
        lfo = LfoState{}, voices = VoiceState{}, Init(lfo, 0), ctx.sampleRate = sampleRate;
        wave.clear(), trig.clear(), pulses.clear(), std::fill_n(values, kLfoParamCount, 0.0f);
        for (auto [i, v] : set) values[i] = v;
        BindAll(lfo.params, values);
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
        const double reset = phase + lfo.rateHz[0] / 1000.0;
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

namespace {

// Waves 0 to 4 written from their steps, with the softening curve and retriggers.
struct LfoModel {
    float v[kLfoParamCount] = {}, rate = 0, inv = 0, scale = 0;
    double phase = -0.5, timer = 0;
    uint32_t length = 0, counter = 0, randomCounter = 0, seed = 0;
    bool firstHalf = false, prevGate = false;
    float value = 0, oldRandom = 0, previous[3] = {}, held[3] = {}, step[3] = {};
    int slewCount[3] = {};
    bool active[3] = {};
    LfoModel(const float* values, float sampleRate, uint32_t s)
        : rate(sampleRate), inv(1.0f / sampleRate), seed(s) {
        std::copy(values, values + kLfoParamCount, v);
        length = uint32_t(std::ceil(0.0249433f * sampleRate));
        scale = 1.0f / (std::log(float(length) + 130.0f) - 4.8675346f);
    }
    float Curve(uint32_t j) const { return (std::log(float(j) + 130.0f) - 4.8675346f) * scale; }
    static float Speed(float x) {
        static const std::pair<int, float> bp[] = {
            {0, 0.0373f},     {10, 0.1625593f}, {20, 0.5561735f}, {30, 1.0710078f},
            {40, 1.7918899f}, {50, 3.7022228f}, {55, 5.555556f},  {58, 8.277118f},
            {60, 11.410315f}, {63, 27.59f}};
        float t[64];
        for (int s = 0; s < 9; ++s)
            for (int i = bp[s].first; i <= bp[s + 1].first; ++i) {
                const float f = float(i - bp[s].first) / float(bp[s + 1].first - bp[s].first);
                t[i] = (1.0f - f) * bp[s].second + f * bp[s + 1].second;
            }
        if (x >= 1.0f) return t[63];
        const float p = 63.0f * x, f = p - std::trunc(p);
        return (1.0f - f) * t[int(p)] + f * t[int(p) + 1];
    }
    void Block(bool gate, bool trigger, const float* const* in, float* out0, float* out1) {
        const int wave = int(v[kLfoWave] * 6.0f);
        const bool lag = v[kLfoLag] == 1.0f;
        const float mode = 2.0f * v[kLfoRetrigMode];
        if (mode != 0 && trigger && (mode != 1 || !prevGate)) {
            float r = v[kLfoRetrigPoint] + 0.5f;
            if (r > 1.0f) r -= 1.0f;
            phase = r - 0.5f, timer = 0;
        }
        prevGate = gate;
        for (int n = 0; n < kBlockSize; ++n) {
            const float hz = Speed(std::clamp(in[0][n] + v[kLfoSpeed], 0.0f, 1.0f));
            const float amp = std::clamp(v[kLfoAmp] + in[1][n], 0.0f, 1.0f);
            if (wave == 4) {
                out1[n] = -1.0f;
                if (timer >= 1.0f / hz) {
                    seed = seed * 214013u + 2531011u;
                    oldRandom = value, value = float((seed >> 16 & 0x7FFF) % 16385) / 16385 - 0.5f;
                    timer = 0, randomCounter = 0, out1[n] = 1.0f;
                } else {
                    timer += inv;
                }
                float y = value;
                if (randomCounter < length && lag) {
                    const float c = Curve(randomCounter++);
                    y = oldRandom >= value ? std::fabs(c - 1.0f) * (oldRandom - value) + value
                                           : value * c;
                }
                out0[n] = y * amp;
                continue;
            }
            phase += hz * inv;
            if (phase > 0.5) phase = -0.5, counter = 0;
            const float p = float(phase);
            float square = p >= 0 ? 0.5f : 0.0f, falling = -p, out = p;
            const float triangle = p >= 0 ? 0.5f - 2.0f * p : 2.0f * p + 0.5f;
            if (p >= 0) {
                if (firstHalf) counter = 0, firstHalf = false;
                if (lag && counter < length) square = 0.5f * Curve(counter++);
            } else {
                if (lag && counter < length) {
                    const float c = Curve(counter++);
                    falling = -p * c, square = 0.5f - 0.5f * c,
                    out = std::fabs(c - 1.0f) * 0.5f + p;
                }
                firstHalf = true;
            }
            out1[n] = out;
            if (wave == 0) {
                out0[n] = triangle * amp;
                continue;
            }
            const int k = wave - 1;
            const float w = wave == 1 ? square : wave == 2 ? out : falling, jump = w - previous[k];
            if (std::fabs(jump) > 0.9f) {
                held[k] = previous[k], active[k] = true;
                step[k] = wave == 1   ? jump / 32
                          : wave == 2 ? (jump - 31 * hz * inv) / 32
                                      : jump / 32 + 0.96875f * hz * inv;
            }
            float y = w;
            if (active[k]) {
                y = held[k] += step[k];
                if (slewCount[k]++ == 31) active[k] = false, slewCount[k] = 0;
            }
            previous[k] = w;
            out0[n] = y * amp;
        }
    }
};

} // namespace

TEST_F(LfoTest, SoftenedWavesRandomStepsAndRetriggersMatchTheModel) {
    // {wave, lag, retrig_mode, speed}: note-ons come every 37 blocks with the key held.
    const float cases[][4] = {{0, 1, 0.5f, 0.95f}, {1, 1, 1.0f, 0.97f}, {2, 1, 1.0f, 0.9f},
                              {3, 1, 0.0f, 0.93f}, {4, 1, 0.5f, 0.99f}, {4, 0.99f, 0, 0.99f}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "wave " << c[0] << " lag " << c[1]);
        Play(44100.0f, 0,
             {{kLfoWave, (c[0] + 0.5f) / 6.0f},
              {kLfoLag, c[1]},
              {kLfoRetrigMode, c[2]},
              {kLfoSpeed, c[3]},
              {kLfoAmp, 0.6f},
              {kLfoRetrigPoint, 0.75f}});
        Norvell::dsp::SeedRandom(12345u);
        LfoModel model(values, 44100.0f, 12345u);
        float e0[kBlockSize], e1[kBlockSize];
        for (int b = 0; b < 400; ++b) {
            for (int n = 0; n < kBlockSize; ++n) {
                // Every other block holds one speed for the whole block.
                const int at = b % 2 == 0 ? b * 32 + n : b * 32;
                speedMod[n] = 0.1f * float(std::sin(at * 0.0007));
                ampMod[n] = 0.5f * float(std::sin((b * 32 + n) * 0.0003));
            }
            const bool note = b % 37 == 3;
            voices.activeVoices = 1, voices.gateVoices |= note, voices.triggerVoices = note;
            model.Block(voices.gateVoices, note, in, e0, e1);
            ASSERT_EQ(Process(lfo, in, 3, out, 2, ctx), kProcessOk);
            for (int n = 0; n < kBlockSize; ++n) {
                ASSERT_NEAR(out[0][n], e0[n], 2e-5f) << "block " << b << " sample " << n;
                ASSERT_NEAR(out[1][n], e1[n], 2e-5f) << "block " << b << " sample " << n;
            }
        }
    }
}

TEST(LfoLanes, PeriodicWavesTogetherMatchTheScalarStepAndSlew) {
    // Ten unsoftened periodic LFOs (two groups of four, then a pair) cycling
    // through the four waves, with different rates, a speed that moves within
    // the block, phases about to wrap and both halves pending: outputs and
    // state must equal the scalar step, and the saws' jumps the 32-sample ramp.
    VoiceState voices;
    voices.activeVoices = 1;
    const ProcessContext ctx{120.0f, 48000.0f, kBlockSize, &voices};
    LfoState lfos[10];
    LfoState* group[10];
    float values[10][kLfoParamCount] = {};
    float speed[10][kBlockSize] = {}, amp[10][kBlockSize] = {}, o0[10][kBlockSize],
          o1[10][kBlockSize];
    float* out0[10];
    float* out1[10];
    for (int i = 0; i < 10; ++i) {
        Init(lfos[i], 0);
        values[i][kLfoSpeed] = 0.09f * static_cast<float>(i + 1);
        values[i][kLfoAmp] = 0.2f;
        values[i][kLfoWave] = (static_cast<float>(i % 4) + 0.5f) / 6.0f;
        BindAll(lfos[i].params, values[i]);
        group[i] = &lfos[i], out0[i] = o0[i], out1[i] = o1[i];
    }
    for (int n = 0; n < kBlockSize; ++n) speed[2][n] = 0.01f * static_cast<float>(n);
    lfos[1].shape.phase = 0.4999;
    lfos[4].shape.phase = -0.0001;
    lfos[4].shape.firstHalfPending = 1;
    lfos[5].shape.softenCounter = 9;
    lfos[9].shape.phase = 0.49995;
    lfos[6].shape.phase = 0.4998;
    lfos[7].shape.phase = 0.4997;
    struct Slew {
        float previous = 0, held = 0, step = 0;
        int counter = 0;
        bool active = false;
    } slews[10];
    int ramped = 0;
    for (int block = 0; block < 40; ++block) {
        for (int n = 0; n < kBlockSize; ++n) amp[0][n] = 0.03f * static_cast<float>(n % 7);
        Norvell::dsp::PeriodicShape reference[10];
        for (int i = 0; i < 10; ++i) {
            Prepare(lfos[i], speed[i], amp[i], ctx);
            ASSERT_TRUE(InLanes(lfos[i]));
            reference[i] = lfos[i].shape;
        }
        ProcessInLanes(group, out0, out1, 10);
        for (int i = 0; i < 10; ++i) {
            const LfoState& s = lfos[i];
            Norvell::dsp::PeriodicShape& r = reference[i];
            for (int n = 0; n < kBlockSize; ++n) {
                Norvell::dsp::StepPeriodic(r, static_cast<double>(s.rateHz[n]) * s.invSampleRate,
                                           false, s.softening, {0.5f, -0.5f});
                ASSERT_EQ(o1[i][n], r.phaseOut) << block << " " << i << " " << n;
                const int wave = i % 4;
                float value = r.triangleValue;
                if (wave != 0) {
                    const float w = wave == 1   ? r.squareValue
                                    : wave == 2 ? r.phaseOut
                                                : r.fallingSawValue;
                    const float inc = s.rateHz[n] * s.invSampleRate;
                    Slew& sl = slews[i];
                    const float jump = w - sl.previous;
                    if (std::fabs(jump) > 0.9f) {
                        sl.held = sl.previous, sl.active = true;
                        sl.step = wave == 1   ? jump / 32.0f
                                  : wave == 2 ? (jump - 31.0f * inc) / 32.0f
                                              : jump / 32.0f + 0.96875f * inc;
                    }
                    value = w;
                    if (sl.active) {
                        sl.held += sl.step;
                        if (++sl.counter == 32) sl.active = false, sl.counter = 0;
                        value = sl.held;
                        ++ramped;
                    }
                    sl.previous = w;
                }
                ASSERT_EQ(o0[i][n], value * s.amplitude[n]) << block << " " << i << " " << n;
            }
            EXPECT_EQ(s.shape.phase, r.phase);
            EXPECT_EQ(s.shape.squareValue, r.squareValue);
            EXPECT_EQ(s.shape.fallingSawValue, r.fallingSawValue);
            EXPECT_EQ(s.shape.triangleValue, r.triangleValue);
            EXPECT_EQ(s.shape.softenCounter, r.softenCounter) << block << " " << i;
            EXPECT_EQ(s.shape.firstHalfPending, r.firstHalfPending);
        }
    }
    EXPECT_GE(ramped, 64); // both saws ramped over a jump
}
