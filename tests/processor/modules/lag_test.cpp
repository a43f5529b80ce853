#include "processor/modules/lag.h"
#include "processor/modules/voices.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using namespace Norvell::Vantor;

namespace {

float Key(int key) {
    return static_cast<float>(key) / 127.0f;
}

class LagTest : public ::testing::Test {
protected:
    // Fresh lag on the key source; mode {is_linear, equal_time}.
    void Start(float sampleRate, float rate, float linear = 0.0f, float equal = 0.0f) {
        lag = LagState{};
        voices = VoiceState{};
        Init(lag, 0);
        for (uint32_t i = 0; i < kLagParamCount; ++i) lag.params.bound[i] = &values[i];
        values[kLagInputSelector] = 6.5f / 28.0f;
        values[kLagRate] = rate;
        values[kLagIsLinear] = linear;
        values[kLagEqualTime] = equal;
        ctx = {120.0f, sampleRate, kBlockSize, &voices};
        AddVoice(voices.activeVoices, 0);
    }
    void NoteOn(int key) {
        AddVoice(voices.gateVoices, 0);
        AddVoice(voices.triggerVoices, 0);
        std::fill(input, input + kBlockSize, Key(key));
    }
    void Block() {
        float* in[2] = {input, rateMod};
        float* outs[1] = {out};
        ASSERT_EQ(Process(lag, in, 29, outs, 1, ctx), kProcessOk);
        RemoveVoice(voices.triggerVoices, 0);
    }
    // Samples from a note-on until the output lands on its key.
    int GlideSamples(int from, int to) {
        NoteOn(from);
        for (int b = 0; b < 20; ++b) Block();
        NoteOn(to);
        for (int b = 0; b < 100; ++b) {
            Block();
            for (int n = 0; n < kBlockSize; ++n)
                if (out[n] == Key(to)) return b * kBlockSize + n;
        }
        return -1;
    }

    LagState lag;
    float values[kLagParamCount] = {};
    VoiceState voices;
    ProcessContext ctx;
    float input[kBlockSize] = {}, rateMod[kBlockSize] = {}, out[kBlockSize] = {};
};

TEST_F(LagTest, ExponentialTimeConstantIsAFifthOfTheTableTime) {
    // k = (1/rate) / (0.2 T + 1/rate); T = 1.3 us at rate 0, 4.508333 s at 1.
    for (const auto& [rate, seconds] : {std::pair{0.0f, 1.3e-6}, {1.0f, 4.508333}}) {
        Start(1000.0f, rate);
        NoteOn(64);
        Block();
        const double k = 0.001 / (0.2 * seconds + 0.001);
        for (int n = 0; n < kBlockSize; ++n)
            ASSERT_NEAR(out[n], Key(64) * (1.0 - std::pow(1.0 - k, n + 1)), 1e-6) << rate;
    }
}

TEST_F(LagTest, EqualTimeGlidesOfOneAndTwelveKeysTakeTheTableTime) {
    // Breakpoint 20: 0.125 s, 125.5 samples at 1004 Hz. The note-on block
    // restarts the glide on each of its samples, adding less than a block.
    Start(1004.0f, 20 / 63.0f, 1.0f, 1.0f);
    const int octave = GlideSamples(60, 72);
    Start(1004.0f, 20 / 63.0f, 1.0f, 1.0f);
    EXPECT_EQ(GlideSamples(60, 61), octave);
    EXPECT_GE(octave, 125.5 - 1);
    EXPECT_LE(octave, 125.5 + kBlockSize);
}

TEST_F(LagTest, LinearStepsOneKeyPerTableTimeAndCirclesASteadyInput) {
    Start(44100.0f, 30 / 63.0f, 1.0f); // breakpoint 30: 0.002 s per key
    const double step = (1.0 / 127.0) / (0.002 * 44100.0);
    NoteOn(64);
    Block();
    for (int n = 0; n < kBlockSize; ++n) ASSERT_NEAR(out[n], (n + 1) * step, 1e-7);
    for (int b = 0; b < 300; ++b) Block();
    for (int n = 1; n < kBlockSize; ++n) {
        ASSERT_NEAR(std::fabs(out[n] - out[n - 1]), step, 1e-7);
        ASSERT_LE(std::fabs(out[n] - Key(64)), step * 1.001);
    }
}

TEST_F(LagTest, LegatoJumpsAtPhraseStartAndGlidesOverlappingNotes) {
    Start(1000.0f, 0.5f);
    values[kLagLegato] = 1.0f;
    NoteOn(60);
    Block();
    EXPECT_EQ(out[0], Key(60));
    NoteOn(67); // the first key is still held
    Block();
    EXPECT_GT(out[0], Key(60));
    EXPECT_LT(out[31], Key(67));
    RemoveVoice(voices.gateVoices, 0);
    Block();
    NoteOn(48);
    Block();
    EXPECT_EQ(out[0], Key(48));
    voices.activeVoices = 0; // an inactive voice outputs zeros
    Block();
    EXPECT_EQ(*std::max_element(out, out + kBlockSize), 0.0f);
}

} // namespace
