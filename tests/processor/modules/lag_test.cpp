#include "module_rig.h"
#include "processor/modules/lag.h"
#include "processor/modules/voices.h"
#include <gtest/gtest.h>
using namespace Norvell::Vantor;
using VantorTest::BindAll;
TEST(LagTest, ExponentialLinearEqualTimeAndLegato) {
    LagState lag;
    VoiceState voices;
    ProcessContext ctx{120.0f, 1000.0f, kBlockSize, &voices};
    float values[kLagParamCount] = {6.5f / 28.0f}, in[32] = {}, rateMod[32] = {}, out[32] = {};
    float *ins[2] = {in, rateMod}, *outs[1] = {out};
    const auto key = [](int key) { return key / 127.0f; };
    const auto start = [&](float sampleRate, float rate, float linear, float equalTime) {
        lag = LagState{};
        voices = VoiceState{};
        Init(lag, 0);
        ctx.sampleRate = sampleRate;
        BindAll(lag.params, values);
        values[kLagRate] = rate;
        values[kLagIsLinear] = linear;
        values[kLagEqualTime] = equalTime;
    };
    const auto block = [&](int note = -1) { // with a note-on when note >= 0
        if (note >= 0) {
            std::fill(in, in + 32, key(note));
            voices.triggerVoices = 1;
        }
        voices.activeVoices = 1;
        voices.gateVoices |= note >= 0;
        EXPECT_EQ(Process(lag, ins, 29, outs, 1, ctx), kProcessOk);
        voices.triggerVoices = 0;
    };
    // Exponential: k = (1/rate) / (0.2 T + 1/rate); T = 1.3 us at rate 0, 4.508333 s at 1.
    for (const auto& [rate, seconds] : {std::pair{0.0f, 1.3e-6}, {1.0f, 4.508333}}) {
        start(1000.0f, rate, 0, 0);
        block(64);
        const double k = 0.001 / (0.2 * seconds + 0.001);
        for (int n = 0; n < kBlockSize; ++n)
            ASSERT_NEAR(out[n], key(64) * (1.0 - std::pow(1.0 - k, n + 1)), 1e-6) << rate;
    }
    start(44100.0f, 30 / 63.0f, 1, 0); // linear at breakpoint 30: 0.002 s per key
    block(64);
    const double step = (1.0 / 127.0) / (0.002 * 44100.0);
    for (int n = 0; n < kBlockSize; ++n) ASSERT_NEAR(out[n], (n + 1) * step, 1e-7);
    for (int b = 0; b < 300; ++b) block();
    for (int n = 1; n < kBlockSize; ++n) { // then circles a steady input, a step either side
        ASSERT_NEAR(std::fabs(out[n] - out[n - 1]), step, 1e-7);
        ASSERT_LE(std::fabs(out[n] - key(64)), step * 1.001);
    }
    // Equal time at breakpoint 20: 0.125 s, 125.5 samples at 1004 Hz, for 12 keys as for 1.
    int samples[2] = {-1, -1};
    for (int i : {0, 1}) { // 60 to 72, then 60 to 61: samples until the output lands on the key
        start(1004.0f, 20 / 63.0f, 1, 1);
        for (int b = 0; b < 20; ++b) block(b ? -1 : 60);
        for (int n = 0; n < 3200 && samples[i] < 0; ++n) {
            if (n % kBlockSize == 0) block(n ? -1 : 72 - 11 * i);
            if (out[n % kBlockSize] == key(72 - 11 * i)) samples[i] = n;
        }
    }
    EXPECT_EQ(samples[1], samples[0]);
    EXPECT_NEAR(samples[0], 141.0, 16.5); // 125.5 - 1 to 125.5 + the note-on block restarting
    start(1000.0f, 0.5f, 0, 0); // legato: a jump at a phrase start, a glide while a key is held
    values[kLagLegato] = 1.0f;
    block(60);
    EXPECT_EQ(out[0], key(60));
    block(67);
    EXPECT_GT(out[0], key(60));
    voices.gateVoices = 0;
    block();
    block(48);
    EXPECT_EQ(out[0], key(48));
}
