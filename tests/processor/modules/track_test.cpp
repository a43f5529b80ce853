#include "module_rig.h"
#include "processor/modules/track.h"
#include <gtest/gtest.h>
#include <limits>
using namespace Norvell::Vantor;
using VantorTest::BindAll;
TEST(TrackTest, CurvesOnEachKindOfSourceAndOutOfRangeSamples) {
    TrackState tracker;
    float values[kTrackParamCount] = {0.0f, 0.25f, 0.5f, 0.75f, 1.0f}; // identity
    float buffers[kSourceCount][32] = {}, out[32], *sources[kSourceCount] = {}, *outs[1] = {out};
    Init(tracker, 0);
    BindAll(tracker.params, values);
    for (int s = 1; s < kSourceCount; ++s) sources[s] = buffers[s];
    const auto block = [&](int source) { // LFO 1 (16) is bipolar; unwritten samples stay 99
        values[kTrackInputSelector] = (source + 0.5f) / 28.0f, tracker.bipolar = source == 16;
        std::fill(out, out + kBlockSize, 99.0f);
        return Process(tracker, sources, kSourceCount, outs, 1, {120.0f, 44100.0f, 32, nullptr});
    };
    // An input per segment of velocity, mod wheel (half scale), LFO 1 (centred); identity, vee.
    const float u[6] = {0, .125, .375, .625, .875, 1}, vee[6] = {.1, .5, .6, .45, .4, .2};
    for (const bool identity : {true, false}) {
        if (!identity)
            values[0] = 0.1f, values[1] = 0.9f, values[2] = 0.3f, values[3] = 0.6f,
            values[4] = 0.2f;
        for (const int source : {8, 1, 16}) {
            const float shift = source == 16 ? 0.5f : 0.0f, scale = source == 1 ? 0.5f : 1.0f;
            for (int i = 0; i < 6; ++i) buffers[source][i] = scale * u[i] - shift;
            ASSERT_EQ(block(source), kProcessOk);
            for (int i = 0; i < 6; ++i)
                EXPECT_NEAR(out[i], (identity ? u[i] : vee[i]) - shift, 1e-6) << source << i;
        }
    }
    for (const int source : {8, 16}) { // an out-of-range or NaN sample stops the block: status 4
        buffers[source][5] = source == 8 ? 1.5f : -0.6f;
        EXPECT_EQ(block(source), kProcessUnusable);
        EXPECT_NE(out[4], 99.0f);
        EXPECT_EQ(out[5], 99.0f);
        buffers[source][5] = std::numeric_limits<float>::quiet_NaN();
        EXPECT_EQ(block(source), kProcessUnusable);
    }
}
