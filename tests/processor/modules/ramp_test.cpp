#include "module_rig.h"
#include "processor/modules/ramp.h"
#include "processor/modules/voices.h"
#include <gtest/gtest.h>
using namespace Norvell::Vantor;
using VantorTest::ModuleRig;
TEST(RampTest, RiseLegatoAndGatedLfoTriggers) {
    ModuleRig<RampState> rig(0); // voice 0
    RampState& ramp = rig.s;
    VoiceState& voices = rig.voices;
    float* values = rig.values;
    values[kRampRetrigMode] = 1.0f;
    values[kRampGated] = 1.0f;
    float trig[kBlockSize];
    float out[32];
    float *in[6] = {trig, trig, trig, trig, trig, trig}, *outs[1] = {out}; // LFO 1 is input 0
    std::fill(trig, trig + kBlockSize, -1.0f);
    const auto block = [&](bool noteOn = false) { // the first sample
        if (noteOn) voices.activeVoices = voices.gateVoices = voices.triggerVoices = 1;
        EXPECT_EQ(Process(ramp, in, 6, outs, 1, rig.ctx), kProcessOk);
        voices.triggerVoices = 0;
        return out[0];
    };
    for (int n = 0; n < 10 * kBlockSize; ++n) { // 0.006 s: 264.6 samples, 1.0 from sample 264
        if (n % kBlockSize == 0) block(n == 0);
        ASSERT_NEAR(out[n % kBlockSize], n < 264 ? (n + 1) / (0.006 * 44100.0) : 1.0, 1e-5) << n;
    }
    values[kRampRate] = 0.5f;
    for (float mode : {0.0f, 1.0f}) { // a note-on while the gate is open restarts with mode 1
        values[kRampRetrigMode] = mode;
        voices.gateVoices = 0;
        block();
        const float step = block(true);
        for (int b = 0; b < 5; ++b) block();
        EXPECT_NEAR(block(true), mode == 0.0f ? (6 * kBlockSize + 1) * step : step, 1e-5);
    }
    values[kRampLfoTrigOn] = 1.0f;
    const float step = block(true);
    std::fill(trig + 10, trig + kBlockSize, 1.0f); // key held: a rising edge restarts
    block();
    EXPECT_FLOAT_EQ(out[10], step);
    std::fill(trig, trig + 10, 1.0f); // staying above 0 does not
    EXPECT_NEAR(block(), 23 * step, 1e-5);
    voices.gateVoices = 0; // key up: gated ignores the edge, ungated restarts
    std::fill(trig, trig + 10, -1.0f);
    const float first = block();
    EXPECT_GT(out[10], first);
    values[kRampGated] = 0.0f;
    block();
    EXPECT_FLOAT_EQ(out[10], step);
}
