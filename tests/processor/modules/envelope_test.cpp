#include "engine_harness.h"
#include "module_rig.h"
#include "processor/modules/envelope.h"
#include "processor/signalbank.h"
#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
using namespace Norvell::Vantor;
using VantorTest::BindAll;
int First(const std::vector<float>& v, size_t i, float lo, float hi) { // first in [lo, hi]
    while (i < v.size() && !(lo <= v[i] && v[i] <= hi)) ++i;
    return static_cast<int>(i);
}

struct EnvelopeTest : ::testing::Test { // Play: a new envelope with these values changed
    std::vector<float> Play(long blocks, std::initializer_list<std::pair<int, float>> set,
                            bool key = true) {
        env = EnvelopeState{};
        voices = VoiceState{};
        Init(env, 0);
        BindAll(env.params, values);
        for (auto [i, v] : set) values[i] = v;
        voices.gateVoices = voices.activeVoices = voices.triggerVoices = key;
        return Run(blocks);
    }
    std::vector<float> Run(long blocks, bool release = false) { // trigger, release: one block
        if (release) {
            voices.gateVoices = 0;
            voices.releaseVoices = 1;
        }
        std::vector<float> out(blocks * kBlockSize);
        for (float* o = out.data(); o < out.data() + out.size();
             o += kBlockSize, voices.triggerVoices = voices.releaseVoices = 0)
            Process(env, in, kEnvInputCount, &o, 1, ctx);
        return out;
    }
    EnvelopeState env;
    VoiceState voices;
    ProcessContext ctx{120.0f, 44100.0f, 0, &voices};
    float values[kEnvParamCount] = {0, 0, 0, 0, 0, 1.0f}, mod[kEnvInputCount][kBlockSize] = {};
    float* in[kEnvInputCount] = {mod[0], mod[1], mod[2], mod[3], mod[4], mod[5],
                                 mod[6], mod[7], mod[8], mod[9], mod[10]};
};

TEST_F(EnvelopeTest, StagesFollowTheTables) {
    for (float freerun : {1.0f, 0.0f}) { // 1 completes attack and decay, 0 releases from there
        const float level = Play(4, {{kEnvSustain, 0.5f}, {kEnvFreerun, freerun}}).back();
        const std::vector<float> out = Run(60, true);
        const float peak = *std::max_element(out.begin(), out.end());
        if (freerun == 0.0f) {
            EXPECT_EQ(peak, out[0]);
            EXPECT_GT(out[0], 0.95f * level);
        } else {
            EXPECT_GE(peak, 1.0f);
        }
        EXPECT_EQ(env.finished, 1);
    }
    // 85 s and 0.006 s: 1 - (1 - ln 200 / N)^k reaches 199/200 after 3748494 and 262 samples.
    for (const auto& [position, silent, slack] : {std::tuple{1.0f, 3748493, 2}, {0.0f, 261, 0}}) {
        Play(20, {{kEnvSustain, 1.0f}, {kEnvRelease, position}});
        EXPECT_NEAR(First(Run(1 << 17, true), 0, 0, 0), silent, slack);
    }
    // {sustain, dadr, decay, amp, ends}: a 72 s decay would show; all 0 takes the first refresh.
    for (const auto& c :
         {std::array{1.0f, 0.0f, 1.0f, 1.0f, 0.0f}, {0, 0, 0, 0, 1}, {0.5f, 1, 0, 1, 1}}) {
        const std::vector<float> out =
            Play(c[4] ? 2000 : 20,
                 {{kEnvSustain, c[0]}, {kEnvDadr, c[1]}, {kEnvDecay, c[2]}, {kEnvAmp, c[3]}});
        EXPECT_EQ(out.back(), c[4] ? 0.0f : 1.0f) << c[0] << " dadr " << c[1];
        EXPECT_EQ(env.finished, c[4]);
    }
    ctx.sampleRate = 73500.0f; // position 0: 0.006 s x 73500 = 441 samples
    std::vector<float> out = Play(40, {{kEnvSustain, 0.5f}, {kEnvDadr, 0.0f}});
    for (int k = 1; k < 441; ++k) ASSERT_NEAR(out[k], k / 441.0, 1e-5) << k; // after delay sample
    EXPECT_EQ(First(out, 0, 1, 2), 441);
    EXPECT_EQ(First(out, 441, 0, 0.5f), 441 + 439);
    EXPECT_EQ(out.back(), 0.5f);
    mod[kEnvInAttack][0] = 0.5f; // the attack takes sample 0 first: above 0.29 it holds
    out = Play(1, {});
    EXPECT_EQ(out[1], 0.0f);
    EXPECT_GT(out[2], 0.0f);
}

TEST_F(EnvelopeTest, RetriggersAreLegatoUnlessResetOrAnLfoEdgeFadeAndRestart) {
    for (int reset : {0, 1, 2}) { // 2: single_trig instead of reset
        Play(40, {{kEnvSustain, 0.5f}, {kEnvReset, reset == 1}, {kEnvSingleTrig, reset == 2}});
        voices.triggerVoices = 1; // a new key, the gate stays open
        const std::vector<float> out = Run(6);
        int k = 0; // level_k = (1 - k/128) level_(k-1)
        for (float level = 0.5f; reset && (level *= 1.0f - k / 128.0f) > 1e-25f; ++k)
            ASSERT_FLOAT_EQ(out[k], level);
        EXPECT_LE(k, 128);
        const int restart = (k / kBlockSize + 1) * kBlockSize; // next block, from level 0
        EXPECT_EQ(out[restart], reset ? 0.0f : 0.5f);
        EXPECT_NEAR(out[restart + 1], reset ? 1.0f / (0.006f * 44100.0f) : 0.5f, 1e-6);
    }
    float* trigger = mod[kEnvInFirstTrigger]; // ungated LFO 1 edges run a silent voice's contour
    std::fill(trigger, trigger + kBlockSize, -1.0f);
    EXPECT_EQ(Play(2, {{kEnvSustain, 1.0f}, {kEnvLfoTrig, 1.0f}}, false).back(), 0.0f);
    std::fill(trigger, trigger + kBlockSize, 1.0f);
    EXPECT_EQ(Run(20).back(), 1.0f);
    std::fill(trigger, trigger + 5, -1.0f);
    const std::vector<float> out = Run(1);
    EXPECT_EQ(out[5], 1.0f);
    EXPECT_FLOAT_EQ(out[6], 127.0f / 128.0f);
}

TEST(EnvelopeHostTest, EnvelopeOnVcaLevelRisesHoldsReleasesAndEndsTheVoice) {
    VantorTest::EngineHarness h(44100.0f);
    h.SetupSingleVoicePatch(); // envelope 1 on VCA 1's level, whose own gain is 0
    const std::pair<const char*, float> patch[] = {
        {"vca1_gain", 0.0f},      {"matrix1_src", 11.5f / 28}, {"matrix1_dest", 9.5f / 48},
        {"matrix1_amount", 1.0f}, {"env1_sustain", 0.5f},      {"env1_amp", 1.0f}};
    for (const auto& [name, value] : patch) h.Set(std::string("voice1_") + name, value);
    std::vector<float> out, active; // per sample, per block
    h.NoteOn(60, 100);
    for (int b = 0; b < 50; ++b) { // released after 30 blocks
        if (b == 30) h.NoteOff(60);
        h.RenderBlocks(1);
        const float* env = h.Processor().Signals().voices[0].env[0];
        out.insert(out.end(), env, env + kBlockSize);
        active.push_back(HasVoice(h.Processor().Voices().activeVoices, 0));
    }
    EXPECT_EQ(First(out, 0, 1, 2), 265); // times 0: 264.6 samples after the delay sample
    const int silent = First(out, 960, 0, 0);
    EXPECT_EQ(silent, 960 + 261);
    EXPECT_EQ(active[silent / kBlockSize - 1], 1.0f);
    EXPECT_EQ(active[silent / kBlockSize], 0.0f);
}

namespace {

// The four time tables built from their breakpoints, looked up at a position 0..1.
float TimeTable(int table, float x) {
    static const float points[4][10] = {{0, 0.0972789f, 0.1854195f, 0.2750567f, 0.3602721f,
                                         0.4330385f, 0.6691383f, 1.1242857f, 1.7285714f,
                                         2.2936282f},
                                        {0.006f, 0.0166893f, 0.1503628f, 0.3656236f, 0.6569615f,
                                         0.9658277f, 1.5455782f, 2.887982f, 6.917914f, 15.296372f},
                                        {0.006f, 0.0907029f, 0.6984127f, 1.8594104f, 3.526077f,
                                         5.442177f, 9.410431f, 16.804535f, 36.22449f, 72.55181f},
                                        {0.006f, 0.044898f, 0.6575964f, 1.8820862f, 3.5174603f,
                                         6.054422f, 9.433106f, 17.142857f, 37.097507f, 85.0f}};
    static const int index[10] = {0, 10, 20, 30, 40, 45, 50, 55, 60, 63};
    float t[64];
    for (int s = 0; s < 9; ++s)
        for (int i = index[s]; i <= index[s + 1]; ++i) {
            const float f = float(i - index[s]) / float(index[s + 1] - index[s]);
            t[i] = (1.0f - f) * points[table][s] + f * points[table][s + 1];
        }
    if (x >= 1.0f) return t[63];
    const float p = x * 63.0f, f = p - std::trunc(p);
    const int i = int(p);
    return (1.0f - f) * t[i] + f * t[i + 1];
}

// The contour written from the stage descriptions, one call per block.
struct EnvModel {
    float v[kEnvParamCount] = {};
    int stage = 0;
    double progress = 0, elapsed = 0;
    float segStart = 0, segTarget = 0, level = 0, fastGain = 1, prevTrigger = 0;
    bool segDone = true, startRelease = false, fast = false, restart = false, prevGate = false;
    int cursor[5] = {};
    float Next(const float* const* in, int input) { return in[input][cursor[input]++]; }
    void StartSegment(float from, float to) {
        segStart = from;
        segTarget = to;
        progress = 0;
        segDone = false;
    }
    void Advance(float n) {
        progress += (1.0 - progress) * 5.298318 / n;
        const double y = progress * (200.0 / 199.0);
        level = float(segTarget + (segStart - segTarget) * (1.0 - y));
        segDone = segTarget >= level;
    }
    void Block(bool gate, bool active, bool trigger, bool releaseEvent, const float* const* in,
               float* out, float rate) {
        std::fill(cursor, cursor + 5, 0);
        std::fill(out, out + kBlockSize, 0.0f);
        if (restart) {
            stage = 0;
            restart = false;
        }
        const bool lfoTrig = v[kEnvLfoTrig] > 0;
        const float gated = v[kEnvGatedLfoTrig];
        if (lfoTrig && gated == 0) gate = true;
        if (!active && !lfoTrig) {
            prevGate = false;
            return;
        }
        if (!gate && v[kEnvFreerun] < 1.0f) {
            if (stage != 4) startRelease = true;
            stage = 4;
        }
        if (trigger) {
            if (releaseEvent || prevGate != gate)
                stage = 0;
            else if (v[kEnvReset] > 0 || v[kEnvSingleTrig] > 0) {
                stage = 4;
                fast = true;
            }
        }
        prevGate = gate;
        const float* trig = in[kEnvInFirstTrigger + std::clamp(int(v[kEnvLfoId] * 6.0f), 0, 5)];
        for (int n = 0; n < kBlockSize; ++n) {
            if (lfoTrig) {
                const float x = trig[n];
                if (((gated > 0 && gate) || gated == 0) && x > 0 && prevTrigger <= 0) {
                    stage = 4;
                    fast = true;
                }
                prevTrigger = x;
            }
            bool end = false;
            if (stage == 0) {
                const float m = Next(in, kEnvInDelay);
                if (m <= 0) elapsed += 1.0 / rate;
                if (elapsed + 1.0 / rate > TimeTable(0, std::clamp(m + v[kEnvDelay], 0.0f, 1.0f)))
                    stage = 1;
            } else if (stage == 1) {
                elapsed = 0;
                const float m = Next(in, kEnvInAttack);
                if (m <= 0.29f)
                    level +=
                        1.0f / (TimeTable(1, std::clamp(v[kEnvAttack] + 3 * m, 0.0f, 1.0f)) * rate);
            } else if (stage == 2) {
                const float m = Next(in, kEnvInDecay);
                Advance(TimeTable(2, std::clamp(v[kEnvDecay] + 3 * m, 0.0f, 1.0f)) * rate);
            } else if (stage == 3) {
                if (v[kEnvSustain] == 0) {
                    level = 0;
                    stage = 4;
                } else if ((v[kEnvFreerun] > 0 && !gate) || v[kEnvDadr] > 0) {
                    startRelease = true;
                    stage = 4;
                } else
                    level = v[kEnvSustain];
            } else {
                if (startRelease) {
                    startRelease = false;
                    StartSegment(level, 0);
                }
                if (fast) {
                    level *= fastGain;
                    fastGain -= 0.0078125f;
                    if (!(level > 1e-25f)) {
                        fast = false;
                        restart = true;
                        fastGain = 1;
                        end = true;
                    }
                } else if (level == 0) {
                    end = true;
                } else {
                    const float m = Next(in, kEnvInRelease);
                    Advance(TimeTable(3, std::clamp(v[kEnvRelease] + 3 * m, 0.0f, 1.0f)) * rate);
                    end = segDone;
                }
            }
            if (end) {
                level = 0;
                elapsed = 0;
                return;
            }
            const float a = std::clamp(v[kEnvAmp] + Next(in, kEnvInAmp), 0.0f, 1.0f);
            out[n] = level * a;
            if (stage == 1 && level >= 1.0f) {
                level = 1.0f;
                if (v[kEnvSustain] == 1.0f)
                    stage = 3;
                else {
                    StartSegment(1.0f, v[kEnvSustain]);
                    stage = 2;
                }
            } else if (stage == 2 && segDone) {
                stage = 3;
            }
        }
    }
};

struct ContourCase {
    const char* name;
    std::vector<std::pair<int, float>> params;
    int input;               // modulated input, -1 none
    float depth, period;     // sine modulation, or a square when period < 0
    std::vector<int> events; // block numbers: key on, off, on...
    bool active = true;      // voice in the active set
};

} // namespace

TEST_F(EnvelopeTest, ContoursMatchTheModelSampleBySample) {
    // clang-format off
    const ContourCase cases[] = {
        {"delay stage held while its modulation is above 0",
         {{kEnvDelay, 0.3f}, {kEnvAttack, 0.2f}, {kEnvSustain, 0.6f}, {kEnvDecay, 0.25f}},
         kEnvInDelay, 0.2f, 900, {0, 500}},
        {"decay bent by modulation", {{kEnvDecay, 0.3f}, {kEnvSustain, 0.3f}, {kEnvRelease, 0.2f}},
         kEnvInDecay, 0.08f, 1500, {0, 300}},
        {"release bent by modulation", {{kEnvSustain, 0.7f}, {kEnvRelease, 0.33f}},
         kEnvInRelease, 0.1f, 700, {0, 30}},
        {"amplitude modulation, clamped", {{kEnvAmp, 0.6f}, {kEnvSustain, 0.8f}, {kEnvDecay, 0.2f}},
         kEnvInAmp, 0.7f, 400, {0, 120}},
        {"attack held above the threshold", {{kEnvAttack, 0.25f}, {kEnvSustain, 0.5f}},
         kEnvInAttack, 0.3f, -300, {0}},
        {"note-on in the release restarts from its level",
         {{kEnvDelay, 0.02f}, {kEnvAttack, 0.2f}, {kEnvSustain, 0.9f}, {kEnvRelease, 0.3f}},
         -1, 0, 0, {0, 120, 150, 250}},
        {"freerun completes the stages after an early release",
         {{kEnvDelay, 0.1f}, {kEnvAttack, 0.15f}, {kEnvDecay, 0.2f}, {kEnvSustain, 0.4f},
          {kEnvFreerun, 1.0f}}, -1, 0, 0, {0, 3}},
        {"gated trigger on input 3 acts only while the key is held",
         {{kEnvLfoTrig, 1.0f}, {kEnvLfoId, 0.55f}, {kEnvGatedLfoTrig, 1.0f}, {kEnvSustain, 0.8f},
          {kEnvDecay, 0.1f}, {kEnvRelease, 0.4f}}, kEnvInFirstTrigger + 3, 1.0f, -2000, {0, 200}},
        {"ungated trigger on the vibrato input runs an inactive voice",
         {{kEnvLfoTrig, 0.5f}, {kEnvLfoId, 1.0f}, {kEnvSustain, 0.5f}},
         kEnvInFirstTrigger + 5, 1.0f, -3000, {}, false},
        {"negative gating ignores the edges",
         {{kEnvLfoTrig, 1.0f}, {kEnvGatedLfoTrig, -1.0f}, {kEnvSustain, 0.5f}},
         kEnvInFirstTrigger, 1.0f, -1000, {0}},
    };
    // clang-format on
    for (const ContourCase& c : cases) {
        SCOPED_TRACE(c.name);
        env = EnvelopeState{};
        voices = VoiceState{};
        Init(env, 0);
        EnvModel model;
        std::fill(values, values + kEnvParamCount, 0.0f);
        values[kEnvAmp] = 1.0f;
        for (auto [i, v] : c.params) values[i] = v;
        BindAll(env.params, values);
        std::copy(values, values + kEnvParamCount, model.v);
        for (auto& m : mod) std::fill(m, m + kBlockSize, 0.0f);
        // The other trigger inputs carry edges at other times.
        for (int t = kEnvInFirstTrigger; t < kEnvInputCount; ++t) mod[t][7 * t % 32] = 1.0f;
        bool gate = false;
        int n = 0;
        for (int b = 0; b < 700; ++b) {
            const bool event = std::find(c.events.begin(), c.events.end(), b) != c.events.end();
            if (event) gate = !gate;
            voices.gateVoices = gate;
            voices.activeVoices = c.active;
            voices.triggerVoices = event && gate;
            voices.releaseVoices = event && !gate;
            for (int i = 0; i < kBlockSize && c.input >= 0; ++i, ++n) {
                const double s = c.period > 0 ? std::sin(2 * M_PI * n / c.period)
                                 : std::fmod(n, -c.period) < -c.period / 2 ? 1
                                                                           : -1;
                mod[c.input][i] = c.depth * float(s);
            }
            float expected[kBlockSize], actual[kBlockSize];
            float* outs[1] = {actual};
            model.Block(gate, c.active, event && gate, event && !gate, in, expected,
                        ctx.sampleRate);
            ASSERT_EQ(Process(env, in, kEnvInputCount, outs, 1, ctx), 0);
            for (int i = 0; i < kBlockSize; ++i)
                ASSERT_NEAR(actual[i], expected[i], 2e-5f) << "sample " << b * 32 + i;
        }
    }
}
