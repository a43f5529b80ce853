#include "processor/modules/ramp.h"
#include "processor/modules/voices.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace Norvell::Vantor;

namespace {

class RampTest : public ::testing::Test {
protected:
    void SetUp() override {
        Init(ramp, 0);
        for (uint32_t i = 0; i < kRampParamCount; ++i) ramp.params.bound[i] = &values[i];
        ctx.sampleRate = 44100.0f;
        ctx.frameCount = kBlockSize;
        ctx.voiceState = &voices;
        for (float* t : triggers) std::fill(t, t + kBlockSize, -1.0f);
    }
    void NoteOn() {
        AddVoice(voices.activeVoices, 0);
        AddVoice(voices.gateVoices, 0);
        AddVoice(voices.triggerVoices, 0);
    }
    // One block; returns its first sample.
    float Block() {
        float* in[6];
        for (int i = 0; i < 6; ++i) in[i] = triggers[i];
        float* out[1] = {buffer};
        EXPECT_EQ(Process(ramp, in, 6, out, 1, ctx), kProcessOk);
        RemoveVoice(voices.triggerVoices, 0);
        return buffer[0];
    }

    RampState ramp;
    float values[kRampParamCount] = {0.0f, 1.0f, 0.0f, 0.0f, 1.0f};
    VoiceState voices;
    ProcessContext ctx;
    float triggers[6][kBlockSize];
    float buffer[kBlockSize] = {};
};

TEST_F(RampTest, RateZeroRisesOver265SamplesThenHolds) {
    NoteOn();
    std::vector<float> out;
    for (int b = 0; b < 10; ++b) {
        Block();
        out.insert(out.end(), buffer, buffer + kBlockSize);
    }
    const double samples = 0.006 * 44100.0; // 264.6
    const auto last = static_cast<size_t>(std::ceil(samples)) - 1;
    for (size_t n = 0; n < last; ++n) ASSERT_NEAR(out[n], (n + 1) / samples, 1e-5) << n;
    for (size_t n = last; n < out.size(); ++n) ASSERT_EQ(out[n], 1.0f) << n;
}

TEST_F(RampTest, LegatoNoteRestartsOnlyWithRetrigMode) {
    values[kRampRate] = 0.5f;
    for (float mode : {0.0f, 1.0f}) {
        values[kRampRetrigMode] = mode;
        RemoveVoice(voices.gateVoices, 0);
        Block();
        NoteOn();
        const float step = Block();
        for (int b = 0; b < 5; ++b) Block();
        NoteOn(); // gate still open
        const float legato = Block();
        if (mode == 0.0f)
            EXPECT_NEAR(legato, (6 * kBlockSize + 1) * step, 1e-5);
        else
            EXPECT_FLOAT_EQ(legato, step);
    }
}

TEST_F(RampTest, LfoTriggerEdgesRestartWhileGated) {
    values[kRampRate] = 0.5f;
    values[kRampLfoTrigOn] = 1.0f;
    NoteOn();
    const float step = Block();
    // Rising edge of LFO 1's trigger at sample 10, a level at sample 20.
    std::fill(triggers[0] + 10, triggers[0] + kBlockSize, 1.0f);
    Block();
    EXPECT_FLOAT_EQ(buffer[10], step);
    std::fill(triggers[0], triggers[0] + 10, 1.0f);
    Block(); // staying above 0 is no new edge
    EXPECT_NEAR(buffer[0], 23 * step, 1e-5);
    // Gated: no restart once the key is up; ungated: restart.
    RemoveVoice(voices.gateVoices, 0);
    for (float gated : {1.0f, 0.0f}) {
        values[kRampGated] = gated;
        std::fill(triggers[0], triggers[0] + 10, -1.0f);
        const float before = Block();
        if (gated != 0.0f)
            EXPECT_GT(buffer[10], before);
        else
            EXPECT_FLOAT_EQ(buffer[10], step);
    }
    // lfo_trig_id 1.0 selects the vibrato trigger (input 5).
    values[kRampLfoTrigId] = 1.0f;
    std::fill(triggers[5] + 4, triggers[5] + kBlockSize, 1.0f);
    Block();
    EXPECT_FLOAT_EQ(buffer[4], step);
}

TEST_F(RampTest, InactiveVoiceHoldsZeroWithoutWriting) {
    NoteOn();
    Block();
    voices.activeVoices = 0;
    buffer[0] = 7.0f;
    EXPECT_EQ(Block(), 7.0f);
    AddVoice(voices.activeVoices, 0);
    EXPECT_NEAR(Block(), 1.0 / (0.006 * 44100.0), 1e-6);
}

} // namespace
