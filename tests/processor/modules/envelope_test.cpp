#include "engine_harness.h"
#include "processor/modules.h"
#include "processor/modules/envelope.h"
#include "processor/modules/voices.h"
#include "processor/signalbank.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <initializer_list>
#include <vector>

using namespace Norvell::Vantor;

namespace {

// Segment constants as stored: ln 200 and 200/199 in single precision.
const double kCurve = std::bit_cast<float>(0x40A98BD3u);
const double kScale = std::bit_cast<float>(0x3F80A4AAu);

// Samples an exponential segment over n samples needs to reach its target:
// progress after k samples is 1 - (1 - c/n)^k, and the target is reached
// when progress * scale >= 1.
int SegmentSamples(float n) {
    return static_cast<int>(
        std::ceil(std::log(1.0 - 1.0 / kScale) / std::log(1.0 - kCurve / static_cast<double>(n))));
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
        ctx.frameCount = kBlockSize;
        ctx.voiceState = &voices;
        Fresh();
    }
    // A new envelope bound to the test's values, on an idle voice.
    void Fresh() {
        env = EnvelopeState{};
        Init(env, 0);
        for (int i = 0; i < kEnvParamCount; ++i) env.params.bound[i] = &values[i];
        voices = VoiceState{};
    }

    void NoteOn() {
        AddVoice(voices.gateVoices, 0);
        AddVoice(voices.activeVoices, 0);
        AddVoice(voices.triggerVoices, 0);
    }
    void NoteOff() {
        RemoveVoice(voices.gateVoices, 0);
        AddVoice(voices.releaseVoices, 0);
    }
    // One block; trigger and release bits last one block, as in the engine.
    int32_t Block() {
        float* in[kEnvInputCount];
        for (int i = 0; i < kEnvInputCount; ++i) in[i] = mod[i];
        float* out[1] = {buffer};
        const int32_t status = Process(env, in, kEnvInputCount, out, 1, ctx);
        RemoveVoice(voices.triggerVoices, 0);
        RemoveVoice(voices.releaseVoices, 0);
        return status;
    }
    std::vector<float> Run(int blocks) {
        std::vector<float> out;
        for (int b = 0; b < blocks; ++b) {
            Block();
            out.insert(out.end(), buffer, buffer + kBlockSize);
        }
        return out;
    }
    // Blocks until the finished flag rises; the first silent sample of the
    // release, counted from the start of the run.
    long RunToEnd(long maxBlocks) {
        for (long b = 0; b < maxBlocks; ++b) {
            Block();
            if (env.finished)
                for (int n = 0; n < kBlockSize; ++n)
                    if (buffer[n] == 0.0f) return b * kBlockSize + n;
        }
        return -1;
    }

    EnvelopeState env;
    float values[kEnvParamCount] = {};
    VoiceState voices;
    ProcessContext ctx;
    float mod[kEnvInputCount][kBlockSize] = {};
    float buffer[kBlockSize] = {};
};

TEST_F(EnvelopeTest, ShortestAttackAndDecayFollowTheTables) {
    values[kEnvSustain] = 0.5f;
    NoteOn();
    const std::vector<float> out = Run(40);
    const float attack = 0.006f * 44100.0f; // 264.6 samples
    EXPECT_EQ(out[0], 0.0f);                // one sample of delay stage
    for (int k = 1; k <= 264; ++k) ASSERT_NEAR(out[k], k / attack, 1e-4) << k;
    const int peak = static_cast<int>(std::ceil(attack)); // sample 0 is the delay
    EXPECT_GE(out[peak], 1.0f);
    EXPECT_LT(out[peak - 1], 1.0f);

    const int decay = SegmentSamples(attack); // decay 0 has the same time
    EXPECT_GT(out[peak + decay - 1], 0.5f);
    EXPECT_LE(out[peak + decay], 0.5f);
    for (size_t i = peak + decay + 1; i < out.size(); ++i) ASSERT_EQ(out[i], 0.5f) << i;
}

TEST_F(EnvelopeTest, DecayOf441SamplesLandsOnSustainAtSample439) {
    ctx.sampleRate = 73500.0f; // decay 0: 0.006 s x 73500 = 441 samples
    values[kEnvSustain] = 0.5f;
    NoteOn();
    const std::vector<float> out = Run(40);
    const int peak = FirstIndex(out, 0, [](float x) { return x >= 1.0f; });
    const int landed = FirstIndex(out, peak, [](float x) { return x <= 0.5f; });
    EXPECT_EQ(landed - peak, 439);
    EXPECT_EQ(out[landed + 1], 0.5f);
}

TEST_F(EnvelopeTest, SustainOneSkipsTheDecayAndHolds) {
    values[kEnvSustain] = 1.0f;
    values[kEnvDecay] = 1.0f;
    NoteOn();
    const std::vector<float> out = Run(30);
    for (size_t i = 266; i < out.size(); ++i) ASSERT_EQ(out[i], 1.0f) << i;
}

TEST_F(EnvelopeTest, UnboundRecordTakesItsZerosOnTheFirstCall) {
    // Sustain 0 from the forced first refresh: the contour ends with the key
    // held instead of holding the constructor's sustain of 1.
    EnvelopeState bare;
    Init(bare, 0);
    NoteOn();
    float* in[kEnvInputCount];
    for (int i = 0; i < kEnvInputCount; ++i) in[i] = mod[i];
    float* out[1] = {buffer};
    for (int b = 0; b < 40; ++b) Process(bare, in, kEnvInputCount, out, 1, ctx);
    EXPECT_EQ(bare.sustainValue, 0.0f);
    EXPECT_EQ(bare.finished, 1);
}

TEST_F(EnvelopeTest, SustainZeroAndDadrLeaveTheSustainStageAtOnce) {
    for (int dadr = 0; dadr < 2; ++dadr) {
        Fresh();
        values[kEnvSustain] = dadr ? 0.5f : 0.0f;
        values[kEnvDadr] = static_cast<float>(dadr);
        NoteOn();
        const std::vector<float> out = Run(60);
        EXPECT_EQ(env.finished, 1) << dadr;
        EXPECT_EQ(out.back(), 0.0f);
        // Never held at the sustain level for more than the one sample that
        // leaves the stage.
        if (dadr) {
            int atSustain = 0;
            for (float x : out) atSustain += x == 0.5f;
            EXPECT_LE(atSustain, 1);
        }
    }
}

TEST_F(EnvelopeTest, ReleaseTimesComeFromTheTable) {
    values[kEnvSustain] = 1.0f;
    for (float position : {0.0f, 1.0f}) {
        Fresh();
        values[kEnvRelease] = position;
        NoteOn();
        Run(20);
        ASSERT_EQ(buffer[31], 1.0f);
        NoteOff();
        const float seconds = position == 0.0f ? 0.006f : 85.0f;
        const int expected = SegmentSamples(seconds * 44100.0f) - 1;
        const long silent = RunToEnd(4000000 / kBlockSize);
        EXPECT_NEAR(static_cast<double>(silent), expected, position == 0.0f ? 0.0 : 2.0);
        EXPECT_NEAR(silent / 44100.0, seconds, seconds * 0.02); // a little early
    }
}

TEST_F(EnvelopeTest, GateClosedDuringTheAttack) {
    values[kEnvSustain] = 0.5f;
    for (float freerun : {0.0f, 1.0f}) {
        Fresh();
        values[kEnvFreerun] = freerun;
        NoteOn();
        const float before = Run(4).back(); // halfway up
        NoteOff();
        const std::vector<float> after = Run(60);
        float peak = 0.0f;
        for (float x : after) peak = std::max(peak, x);
        if (freerun == 0.0f) {
            EXPECT_LT(after[0], before); // releases from where it was
            EXPECT_GT(after[0], 0.9f * before);
            EXPECT_EQ(peak, after[0]);
        } else {
            EXPECT_GE(peak, 1.0f); // attack and decay complete first
        }
        EXPECT_EQ(env.finished, 1) << freerun;
    }
}

TEST_F(EnvelopeTest, RetriggerWithTheGateOpenIsLegatoUnlessResetOrSingleTrigger) {
    values[kEnvSustain] = 0.5f;
    enum { kLegato, kReset, kSingleTrig };
    for (int option : {kLegato, kReset, kSingleTrig}) {
        Fresh();
        values[kEnvReset] = option == kReset ? 1.0f : 0.0f;
        values[kEnvSingleTrig] = option == kSingleTrig ? 1.0f : 0.0f;
        NoteOn();
        Run(40);
        AddVoice(voices.triggerVoices, 0); // new key, gate stays open
        const std::vector<float> out = Run(6);
        if (option == kLegato) {
            for (float x : out) ASSERT_EQ(x, 0.5f);
            continue;
        }
        // The fade: level_k = (1 - k/128) level_(k-1) until 1e-25 or less.
        float level = 0.5f;
        int k = 0;
        for (;; ++k) {
            level *= 1.0f - static_cast<float>(k) / 128.0f;
            if (!(level > 1e-25f)) break;
            ASSERT_FLOAT_EQ(out[k], level) << k;
        }
        EXPECT_LE(k, 128);
        EXPECT_EQ(out[k], 0.0f);
        // Restart from level 0: the delay sample, then the attack.
        const int restart = (k / kBlockSize + 1) * kBlockSize;
        for (int i = k; i <= restart; ++i) ASSERT_EQ(out[i], 0.0f) << i;
        EXPECT_NEAR(out[restart + 1], 1.0f / (0.006f * 44100.0f), 1e-6);
        EXPECT_EQ(env.restartPending, 0);
        EXPECT_EQ(env.finished, 0);
    }
}

TEST_F(EnvelopeTest, FadeEndFlagsARestartSoTheVoiceStaysOn) {
    values[kEnvSustain] = 1.0f;
    values[kEnvReset] = 1.0f;
    NoteOn();
    Run(20);
    AddVoice(voices.triggerVoices, 0);
    Run(4); // 128 samples: the fade of a level of 1 ends within them
    EXPECT_EQ(env.finished, 1);
    EXPECT_EQ(env.restartPending, 1);
}

TEST_F(EnvelopeTest, NoteOnDuringTheReleaseRestartsFromTheReleaseLevel) {
    values[kEnvSustain] = 1.0f;
    values[kEnvRelease] = 0.5f;
    NoteOn();
    Run(20);
    NoteOff();
    const float level = Run(10).back();
    ASSERT_LT(level, 1.0f);
    NoteOn();
    const std::vector<float> out = Run(1);
    EXPECT_EQ(out[0], level); // delay sample at the held level
    EXPECT_NEAR(out[1], level + 1.0f / (0.006f * 44100.0f), 1e-6);
}

TEST_F(EnvelopeTest, StagesReadTheirModulationSequentially) {
    // The attack starts on sample 1 but reads attack input sample 0 first.
    mod[kEnvInAttack][0] = 0.5f; // above the hold threshold
    values[kEnvSustain] = 0.5f;
    NoteOn();
    std::vector<float> out = Run(1);
    EXPECT_EQ(out[1], 0.0f);
    EXPECT_GT(out[2], 0.0f);

    // The decay's first sample takes decay input sample 0 before computing
    // its length: input 1.0 selects the longest decay.
    mod[kEnvInDecay][0] = 1.0f;
    const std::vector<float> rest = Run(12);
    out.insert(out.end(), rest.begin(), rest.end());
    const int peak = FirstIndex(out, 0, [](float x) { return x >= 1.0f; });
    const double slowStep = kCurve / (72.55181 * 44100.0) * 0.5;
    EXPECT_NEAR(out[peak + 1], 1.0 - slowStep, 1e-6);
    EXPECT_LT(out[peak + 2], 0.995f);
}

TEST_F(EnvelopeTest, AttackModulationAboveThresholdHoldsTheLevel) {
    for (float& x : mod[kEnvInAttack]) x = 0.5f;
    NoteOn();
    for (float x : Run(50)) ASSERT_EQ(x, 0.0f);
    for (float& x : mod[kEnvInAttack]) x = 0.29f; // at the threshold it rises
    EXPECT_GT(Run(1).back(), 0.0f);
}

TEST_F(EnvelopeTest, DelayStageWaitsForItsTableTime) {
    values[kEnvDelay] = 10.0f / 63.0f; // breakpoint 10: 0.0972789 s
    values[kEnvSustain] = 1.0f;
    NoteOn();
    const std::vector<float> out = Run(150);
    const double delay = 0.0972789;
    int j = 0;
    while ((j + 2) / 44100.0 <= delay) ++j; // the last delay sample
    const int first = FirstIndex(out, 0, [](float x) { return x > 0.0f; });
    EXPECT_NEAR(first, j + 1, 1);

    // Positive delay modulation stops the clock.
    Fresh();
    NoteOn();
    for (float& x : mod[kEnvInDelay]) x = 0.5f;
    for (float x : Run(300)) ASSERT_EQ(x, 0.0f);
}

TEST_F(EnvelopeTest, AmplitudeScalesAndClamps) {
    values[kEnvSustain] = 1.0f;
    values[kEnvAmp] = 0.5f;
    NoteOn();
    EXPECT_EQ(Run(20).back(), 0.5f);
    for (float& x : mod[kEnvInAmp]) x = 0.8f;
    EXPECT_EQ(Run(1).back(), 1.0f);
    for (float& x : mod[kEnvInAmp]) x = -1.0f;
    EXPECT_EQ(Run(1).back(), 0.0f);
}

TEST_F(EnvelopeTest, UngatedLfoTriggersRunTheEnvelopeOnASilentVoice) {
    values[kEnvSustain] = 1.0f;
    values[kEnvLfoTrig] = 1.0f;
    float* trigger = mod[kEnvInFirstTrigger]; // lfo_id 0: LFO 1
    auto setTrigger = [&](int from, float value) {
        for (int n = from; n < kBlockSize; ++n) trigger[n] = value;
    };
    setTrigger(0, -1.0f);
    for (float x : Run(2)) ASSERT_EQ(x, 0.0f); // ended at once, waits for an edge

    // A finished contour stops at sample 0, so only the block start is
    // watched: an edge there fades from 0 and restarts.
    setTrigger(0, 1.0f);
    Run(1);
    EXPECT_EQ(env.restartPending, 1);
    EXPECT_EQ(Run(20).back(), 1.0f);
    EXPECT_EQ(voices.activeVoices, 0u);

    setTrigger(0, -1.0f);
    setTrigger(5, 1.0f); // an edge inside a running contour
    const std::vector<float> faded = Run(1);
    EXPECT_EQ(faded[4], 1.0f);
    EXPECT_EQ(faded[5], 1.0f); // the first faded sample keeps its level
    EXPECT_FLOAT_EQ(faded[6], 127.0f / 128.0f);
    setTrigger(0, 1.0f);
    Run(8);
    EXPECT_EQ(env.restartPending + env.finished, 0); // restarted...
    EXPECT_GT(buffer[31], 0.0f);                     // ...and rising again
}

TEST_F(EnvelopeTest, GatedLfoTriggersActOnTheSelectedInputWithTheKeyHeld) {
    values[kEnvSustain] = 1.0f;
    values[kEnvLfoTrig] = 1.0f;
    values[kEnvLfoId] = 1.0f; // index 5: the vibrato trigger, input 10
    struct Case {
        float gated;
        int input;
        bool fades;
    };
    for (const Case& c : {Case{1.0f, 5, false}, Case{1.0f, 10, true}, Case{-1.0f, 10, false}}) {
        Fresh();
        values[kEnvGatedLfoTrig] = c.gated;
        NoteOn();
        Run(20);
        for (int n = 0; n < kBlockSize; ++n) mod[c.input][n] = n % 8 < 4 ? 1.0f : -1.0f;
        const std::vector<float> out = Run(2);
        for (float& x : mod[c.input]) x = 0.0f;
        EXPECT_EQ(out[10] < 1.0f, c.fades) << c.gated << " input " << c.input;
    }
}

TEST_F(EnvelopeTest, IdleVoiceAndMissingPointers) {
    for (float& x : buffer) x = 3.0f;
    EXPECT_EQ(Block(), kProcessOk);
    for (float x : buffer) EXPECT_EQ(x, 0.0f);

    ctx.voiceState = nullptr;
    EXPECT_EQ(Block(), kProcessMissing);
    ctx.voiceState = &voices;
    float* none[1] = {nullptr};
    EXPECT_EQ(Process(env, nullptr, 0, none, 1, ctx), kProcessMissing);
    EXPECT_EQ(Process(env, nullptr, 0, nullptr, 1, ctx), kProcessMissing);
}

TEST_F(EnvelopeTest, OutOfRangeParametersReadTheTableEnds) {
    values[kEnvAttack] = NAN; // position 0: 264.6 samples
    values[kEnvSustain] = 1.0f;
    values[kEnvRelease] = -5.0f;
    NoteOn();
    const std::vector<float> out = Run(10);
    EXPECT_NEAR(out[1], 1.0f / (0.006f * 44100.0f), 1e-6);
    NoteOff();
    EXPECT_EQ(RunToEnd(100), SegmentSamples(0.006f * 44100.0f) - 1);
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
    h.Set("voice1_env1_amp", 1.0f); // times at position 0: 0.006 s each

    auto& p = h.Processor();
    const float* env = p.Signals().voices[0].env[0];
    auto ison = [&](float& last) {
        const Norvell::Processor::ValueChange* list = nullptr;
        int32_t count = 0;
        p.GetChangedValues(&list, &count);
        for (int32_t i = 0; i < count; ++i)
            if (list[i].id == h.Id("voice1_ison")) last = list[i].value;
    };
    float on = 0.0f;
    std::vector<float> out;
    std::vector<bool> active;
    auto render = [&](int blocks) {
        for (int b = 0; b < blocks; ++b) {
            h.RenderBlocks(1);
            out.insert(out.end(), env, env + kBlockSize);
            active.push_back(HasVoice(p.Voices().activeVoices, 0));
            ison(on);
        }
    };

    h.NoteOn(60, 100);
    render(30);
    EXPECT_EQ(on, 1.0f);
    const float attack = 0.006f * 44100.0f;
    const int peak = FirstIndex(out, 0, [](float x) { return x >= 1.0f; });
    EXPECT_EQ(peak, static_cast<int>(std::ceil(attack))); // after one delay sample
    EXPECT_EQ(out.back(), 0.5f);
    EXPECT_TRUE(active.back());

    const size_t release = out.size();
    h.NoteOff(60);
    render(20);
    EXPECT_EQ(on, 0.0f);
    const int silent = FirstIndex(out, release, [](float x) { return x == 0.0f; });
    EXPECT_EQ(silent - static_cast<int>(release), SegmentSamples(attack) - 1);
    // Active until the block in which the release ends, idle afterwards.
    const size_t endBlock = static_cast<size_t>(silent) / kBlockSize;
    EXPECT_TRUE(active[endBlock - 1]);
    for (size_t b = endBlock; b < active.size(); ++b) EXPECT_FALSE(active[b]) << b;
}

} // namespace
