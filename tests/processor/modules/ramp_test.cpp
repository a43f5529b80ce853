#include "processor/modules/ramp.h"
#include "processor/modules/voices.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using namespace Norvell::Vantor;

namespace {

class RampTest : public ::testing::Test {
protected:
    void SetUp() override {
        Init(ramp, 0);
        for (uint32_t i = 0; i < kRampParamCount; ++i) ramp.params.bound[i] = &values[i];
        std::fill(&triggers[0][0], &triggers[0][0] + 6 * kBlockSize, -1.0f);
    }
    void NoteOn() {
        AddVoice(voices.activeVoices, 0);
        AddVoice(voices.gateVoices, 0);
        AddVoice(voices.triggerVoices, 0);
    }
    // One block; returns its first sample.
    float Block() {
        float* in[6] = {triggers[0], triggers[1], triggers[2],
                        triggers[3], triggers[4], triggers[5]};
        float* out[1] = {buffer};
        EXPECT_EQ(Process(ramp, in, 6, out, 1, ctx), kProcessOk);
        RemoveVoice(voices.triggerVoices, 0);
        return buffer[0];
    }

    RampState ramp;
    float values[kRampParamCount] = {0.0f, 1.0f, 0.0f, 0.0f, 1.0f};
    VoiceState voices;
    ProcessContext ctx{120.0f, 44100.0f, kBlockSize, &voices};
    float triggers[6][kBlockSize];
    float buffer[kBlockSize] = {};
};

TEST_F(RampTest, RateZeroRisesOver265SamplesThenHolds) {
    NoteOn();
    const double samples = 0.006 * 44100.0; // 264.6: 1.0 at sample 265
    for (int b = 0; b < 10; ++b) {
        Block();
        for (int i = 0; i < kBlockSize; ++i) {
            const int n = b * kBlockSize + i;
            ASSERT_NEAR(buffer[i], n < 264 ? (n + 1) / samples : 1.0, 1e-5) << n;
        }
    }
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
        NoteOn(); // the gate is still open
        EXPECT_NEAR(Block(), mode == 0.0f ? (6 * kBlockSize + 1) * step : step, 1e-5);
    }
}

TEST_F(RampTest, LfoTriggerEdgesRestartOnlyWhileGated) {
    values[kRampRate] = 0.5f;
    values[kRampLfoTrigOn] = 1.0f;
    NoteOn();
    const float step = Block();
    // Key held: a rising edge of LFO 1's trigger at sample 10 restarts;
    // staying above 0 does not.
    std::fill(triggers[0] + 10, triggers[0] + kBlockSize, 1.0f);
    Block();
    EXPECT_FLOAT_EQ(buffer[10], step);
    std::fill(triggers[0], triggers[0] + 10, 1.0f);
    EXPECT_NEAR(Block(), 23 * step, 1e-5);
    // Key up: gated ignores the edge, ungated restarts.
    RemoveVoice(voices.gateVoices, 0);
    std::fill(triggers[0], triggers[0] + 10, -1.0f);
    const float first = Block();
    EXPECT_GT(buffer[10], first);
    values[kRampGated] = 0.0f;
    Block();
    EXPECT_FLOAT_EQ(buffer[10], step);
}

} // namespace
