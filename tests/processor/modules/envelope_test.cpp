#include "engine_harness.h"
#include "processor/modules/envelope.h"
#include "processor/signalbank.h"
#include <algorithm>
#include <gtest/gtest.h>
using namespace Norvell::Vantor;
int First(const std::vector<float>& v, size_t i, float lo, float hi) { // first in [lo, hi]
    while (i < v.size() && !(lo <= v[i] && v[i] <= hi)) ++i;
    return static_cast<int>(i);
}

struct EnvelopeTest : ::testing::Test { // Play: a new envelope with these values changed
    std::vector<float> Play(long blocks, std::initializer_list<std::pair<int, float>> set,
                            bool key = true) {
        env = EnvelopeState{}, voices = VoiceState{}, Init(env, 0);
        for (int i = 0; i < kEnvParamCount; ++i) env.params.bound[i] = &values[i];
        for (auto [i, v] : set) values[i] = v;
        voices.gateVoices = voices.activeVoices = voices.triggerVoices = key;
        return Run(blocks);
    }
    std::vector<float> Run(long blocks, bool release = false) { // trigger, release: one block
        if (release) voices.gateVoices = 0, voices.releaseVoices = 1;
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
        EXPECT_TRUE(freerun == 0.0f ? peak == out[0] && out[0] > 0.95f * level : peak >= 1.0f);
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
