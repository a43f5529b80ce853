#include "engine_harness.h"
#include "processor/modules/envelope.h"
#include "processor/modules/voices.h"
#include "processor/signalbank.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <vector>

using namespace Norvell::Vantor;

namespace {

// Samples an exponential segment of n samples needs to reach its target:
// progress after k samples is 1 - (1 - c/n)^k with c = ln 200, and the target
// is reached once progress x 200/199 >= 1 (both constants as stored, f32).
int SegmentSamples(float n) {
    const double c = std::bit_cast<float>(0x40A98BD3u);
    const double scale = std::bit_cast<float>(0x3F80A4AAu);
    return static_cast<int>(std::ceil(std::log(1.0 - 1.0 / scale) / std::log(1.0 - c / n)));
}

int FirstIndex(const std::vector<float>& out, size_t from, bool (*test)(float)) {
    for (size_t i = from; i < out.size(); ++i)
        if (test(out[i])) return static_cast<int>(i);
    return -1;
}

class EnvelopeTest : public ::testing::Test {
protected:
    void SetUp() override {
        values[kEnvAmp] = 1.0f;
        ctx.sampleRate = 44100.0f;
        ctx.voiceState = &voices;
        Fresh();
    }
    // A new envelope on an idle voice, bound to the test's values.
    void Fresh() {
        env = EnvelopeState{};
        Init(env, 0);
        for (int i = 0; i < kEnvParamCount; ++i) env.params.bound[i] = &values[i];
        voices = VoiceState{};
    }
    void NoteOn() { voices.gateVoices = voices.activeVoices = voices.triggerVoices = 1; }
    void NoteOff() { voices.gateVoices = 0, voices.releaseVoices = 1; }
    // Blocks of output; trigger and release bits last one block, as in the engine.
    std::vector<float> Run(long blocks, bool untilFinished = false) {
        std::vector<float> out;
        float* in[kEnvInputCount];
        for (int i = 0; i < kEnvInputCount; ++i) in[i] = mod[i];
        float* outs[1] = {buffer};
        for (long b = 0; b < blocks && !(untilFinished && env.finished); ++b) {
            Process(env, in, kEnvInputCount, outs, 1, ctx);
            voices.triggerVoices = voices.releaseVoices = 0;
            out.insert(out.end(), buffer, buffer + kBlockSize);
        }
        return out;
    }

    EnvelopeState env;
    float values[kEnvParamCount] = {};
    VoiceState voices;
    ProcessContext ctx;
    float mod[kEnvInputCount][kBlockSize] = {};
    float buffer[kBlockSize] = {};
};

TEST_F(EnvelopeTest, AttackAndDecayOf441SamplesFollowTheTable) {
    ctx.sampleRate = 73500.0f; // position 0: 0.006 s x 73500 = 441 samples
    values[kEnvSustain] = 0.5f;
    NoteOn();
    const std::vector<float> out = Run(40);
    for (int k = 1; k < 441; ++k)
        ASSERT_NEAR(out[k], k / 441.0, 1e-5) << k; // after the delay sample
    const int peak = FirstIndex(out, 0, [](float x) { return x >= 1.0f; });
    EXPECT_EQ(peak, 441);
    EXPECT_EQ(FirstIndex(out, peak, [](float x) { return x <= 0.5f; }) - peak, 439);
    EXPECT_EQ(out.back(), 0.5f);
}

TEST_F(EnvelopeTest, ReleaseTimesComeFromTheTable) {
    values[kEnvSustain] = 1.0f;
    for (float position : {0.0f, 1.0f}) { // 0.006 s and 85 s
        Fresh();
        values[kEnvRelease] = position;
        NoteOn();
        Run(20);
        NoteOff();
        const std::vector<float> out = Run(4000000 / kBlockSize, true);
        const int silent = FirstIndex(out, 0, [](float x) { return x == 0.0f; });
        const float seconds = position == 0.0f ? 0.006f : 85.0f;
        EXPECT_NEAR(silent, SegmentSamples(seconds * 44100.0f) - 1, position == 0.0f ? 0 : 2);
    }
}

TEST_F(EnvelopeTest, SustainStageSkippedOrLeftAtOnce) {
    struct Case {
        float sustain, dadr, decay, amp;
        bool ends;
    };
    // Sustain 1 with a 72 s decay that would show if it ran; sustain 0 with
    // every value 0, so only the first call's forced refresh takes it.
    for (const Case& c : {Case{1.0f, 0, 1.0f, 1.0f, false}, Case{0.0f, 0, 0, 0, true},
                          Case{0.5f, 1, 0, 1.0f, true}}) {
        Fresh();
        values[kEnvSustain] = c.sustain;
        values[kEnvDadr] = c.dadr;
        values[kEnvDecay] = c.decay;
        values[kEnvAmp] = c.amp;
        NoteOn();
        const std::vector<float> out = Run(c.ends ? 2000 : 20);
        EXPECT_EQ(env.finished != 0, c.ends) << c.sustain << " dadr " << c.dadr;
        EXPECT_EQ(out.back(), c.ends ? 0.0f : 1.0f);
    }
    values[kEnvDecay] = 0.0f;
    values[kEnvAmp] = 1.0f;
}

TEST_F(EnvelopeTest, GateClosedDuringTheAttack) {
    values[kEnvSustain] = 0.5f;
    for (float freerun : {0.0f, 1.0f}) {
        Fresh();
        values[kEnvFreerun] = freerun;
        NoteOn();
        const float level = Run(4).back(); // halfway up
        NoteOff();
        const std::vector<float> out = Run(60);
        const float peak = *std::max_element(out.begin(), out.end());
        if (freerun == 0.0f) {
            EXPECT_EQ(peak, out[0]); // releases from where it was
            EXPECT_GT(out[0], 0.95f * level);
        } else {
            EXPECT_GE(peak, 1.0f); // attack and decay complete first
        }
        EXPECT_EQ(env.finished, 1);
    }
}

TEST_F(EnvelopeTest, RetriggerIsLegatoUnlessResetFadesAndRestarts) {
    values[kEnvSustain] = 0.5f;
    enum { kLegato, kReset, kSingleTrig };
    for (int option : {kLegato, kReset, kSingleTrig}) {
        Fresh();
        values[kEnvReset] = option == kReset ? 1.0f : 0.0f;
        values[kEnvSingleTrig] = option == kSingleTrig ? 1.0f : 0.0f;
        NoteOn();
        Run(40);
        AddVoice(voices.triggerVoices, 0); // a new key, the gate stays open
        const std::vector<float> out = Run(6);
        if (option == kLegato) {
            EXPECT_EQ(out[100], 0.5f);
            continue;
        }
        float level = 0.5f; // level_k = (1 - k/128) level_(k-1)
        int k = 0;
        for (; (level *= 1.0f - k / 128.0f) > 1e-25f; ++k) ASSERT_FLOAT_EQ(out[k], level) << k;
        EXPECT_LE(k, 128);
        const int restart = (k / kBlockSize + 1) * kBlockSize; // next block, from level 0
        EXPECT_EQ(out[restart], 0.0f);
        EXPECT_NEAR(out[restart + 1], 1.0f / (0.006f * 44100.0f), 1e-6);
    }
}

TEST_F(EnvelopeTest, EachStageReadsItsOwnModulationInOrder) {
    // The attack starts on sample 1 and takes attack sample 0 first: 0.5 holds it.
    mod[kEnvInAttack][0] = 0.5f;
    NoteOn();
    std::vector<float> out = Run(1);
    EXPECT_EQ(out[1], 0.0f);
    EXPECT_GT(out[2], 0.0f);

    // The decay takes its sample before computing its length: 1.0 gives 72 s.
    Fresh();
    mod[kEnvInAttack][0] = 0.0f;
    mod[kEnvInDecay][0] = 1.0f;
    NoteOn();
    out = Run(12);
    const int peak = FirstIndex(out, 0, [](float x) { return x >= 1.0f; });
    EXPECT_GT(out[peak + 1], 0.9999f);
    EXPECT_LT(out[peak + 2], 0.99f);
}

TEST_F(EnvelopeTest, UngatedLfoTriggersRunTheEnvelopeOnASilentVoice) {
    values[kEnvSustain] = 1.0f;
    values[kEnvLfoTrig] = 1.0f;
    float* trigger = mod[kEnvInFirstTrigger]; // lfo_id 0: LFO 1
    std::fill(trigger, trigger + kBlockSize, -1.0f);
    EXPECT_EQ(Run(2).back(), 0.0f);
    // A finished contour stops at sample 0, so its edge comes at a block start.
    std::fill(trigger, trigger + kBlockSize, 1.0f);
    EXPECT_EQ(Run(20).back(), 1.0f);
    EXPECT_EQ(voices.activeVoices, 0u);
    std::fill(trigger, trigger + 5, -1.0f); // an edge at sample 5 fades
    const std::vector<float> out = Run(1);
    EXPECT_EQ(out[5], 1.0f);
    EXPECT_FLOAT_EQ(out[6], 127.0f / 128.0f);
}

// Through the host interface: envelope 1 on VCA 1's level, whose own gain is
// 0, shapes the voice and ends it once released.
TEST(EnvelopeHostTest, EnvelopeOnVcaLevelRisesHoldsReleasesAndEndsTheVoice) {
    VantorTest::EngineHarness h(44100.0f);
    h.SetupSingleVoicePatch();
    h.Set("voice1_vca1_gain", 0.0f);
    h.Set("voice1_matrix1_src", 11.5f / 28.0f); // envelope 1
    h.Set("voice1_matrix1_dest", 9.5f / 48.0f); // VCA 1 level
    h.Set("voice1_matrix1_amount", 1.0f);
    h.Set("voice1_env1_sustain", 0.5f);
    h.Set("voice1_env1_amp", 1.0f); // all times at position 0: 0.006 s

    auto& p = h.Processor();
    const float* env = p.Signals().voices[0].env[0];
    std::vector<float> out;
    std::vector<bool> active;
    float ison = 0.0f;
    auto render = [&](int blocks) {
        for (int b = 0; b < blocks; ++b) {
            h.RenderBlocks(1);
            out.insert(out.end(), env, env + kBlockSize);
            active.push_back(HasVoice(p.Voices().activeVoices, 0));
            const Norvell::Processor::ValueChange* list = nullptr;
            int32_t count = 0;
            p.GetChangedValues(&list, &count);
            for (int32_t i = 0; i < count; ++i)
                if (list[i].id == h.Id("voice1_ison")) ison = list[i].value;
        }
    };
    h.NoteOn(60, 100);
    render(30);
    EXPECT_EQ(ison, 1.0f);
    const float attack = 0.006f * 44100.0f; // 264.6 samples after the delay sample
    EXPECT_EQ(FirstIndex(out, 0, [](float x) { return x >= 1.0f; }),
              static_cast<int>(std::ceil(attack)));
    EXPECT_EQ(out.back(), 0.5f);

    const size_t release = out.size();
    h.NoteOff(60);
    render(20);
    EXPECT_EQ(ison, 0.0f);
    const int silent = FirstIndex(out, release, [](float x) { return x == 0.0f; });
    EXPECT_EQ(silent - static_cast<int>(release), SegmentSamples(attack) - 1);
    const size_t endBlock = static_cast<size_t>(silent) / kBlockSize;
    EXPECT_TRUE(active[endBlock - 1]);
    EXPECT_FALSE(active[endBlock]);
    EXPECT_FALSE(active.back());
}

} // namespace
