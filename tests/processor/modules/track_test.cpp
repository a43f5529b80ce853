#include "processor/modules/track.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <limits>

using namespace Norvell::Vantor;

namespace {

constexpr float kUnwritten = 99.0f;

// The curve through the five points at positions 0, 0.25, 0.5, 0.75, 1.
double Curve(const float* p, double u) {
    const int i = std::min(static_cast<int>(u * 4.0), 3);
    return p[i] + (p[i + 1] - p[i]) * (u * 4.0 - i);
}

class TrackTest : public ::testing::Test {
protected:
    void SetUp() override {
        Init(tracker, 0);
        for (uint32_t i = 0; i < kTrackParamCount; ++i) tracker.params.bound[i] = &values[i];
        for (int s = 0; s < kSourceCount; ++s) sources[s] = s == 0 ? nullptr : buffers[s];
    }
    void Select(int source) {
        values[kTrackInputSelector] = (source + 0.5f) / 28.0f;
        tracker.bipolar = source == 16 ? 1 : 0; // LFO 1
    }
    int32_t Block() {
        std::fill(std::begin(out), std::end(out), kUnwritten);
        float* outs[1] = {out};
        return Process(tracker, sources, kSourceCount, outs, 1, ctx);
    }

    TrackState tracker;
    float values[kTrackParamCount] = {0.0f, 0.25f, 0.5f, 0.75f, 1.0f, 0.0f};
    ProcessContext ctx{120.0f, 44100.0f, kBlockSize, nullptr};
    float buffers[kSourceCount][kBlockSize] = {};
    float* sources[kSourceCount];
    float out[kBlockSize];
};

TEST_F(TrackTest, CurvesOnUnipolarBipolarAndModWheelSources) {
    const float vee[5] = {0.1f, 0.9f, 0.3f, 0.6f, 0.2f};
    for (const bool identity : {true, false}) {
        if (!identity) std::copy(vee, vee + 5, values);
        // velocity (0..1), mod wheel (carried at half scale), LFO 1 (bipolar)
        for (const int source : {8, 1, 16}) {
            Select(source);
            for (int n = 0; n < kBlockSize; ++n) {
                const float u = n / 31.0f;
                buffers[source][n] = source == 8 ? u : source == 1 ? u * 0.5f : u - 0.5f;
            }
            ASSERT_EQ(Block(), kProcessOk) << source;
            EXPECT_EQ(tracker.inputIndex, source);
            for (int n = 0; n < kBlockSize; ++n) {
                const double u = n / 31.0;
                const double expect = source == 16 ? Curve(values, u) - 0.5 : Curve(values, u);
                ASSERT_NEAR(out[n], expect, 1e-6) << source << " " << n;
                if (identity) {
                    ASSERT_NEAR(out[n], source == 16 ? u - 0.5 : u, 1e-6);
                }
            }
        }
    }
}

TEST_F(TrackTest, OutOfRangeSampleStopsTheBlockWithStatus4) {
    for (const int source : {8, 16}) {
        Select(source);
        std::fill(std::begin(buffers[source]), std::end(buffers[source]), 0.25f);
        buffers[source][5] = source == 8 ? 1.5f : -0.6f;
        EXPECT_EQ(Block(), kProcessUnusable);
        EXPECT_NE(out[4], kUnwritten);
        EXPECT_EQ(out[5], kUnwritten);
        buffers[source][5] = std::numeric_limits<float>::quiet_NaN();
        EXPECT_EQ(Block(), kProcessUnusable);
    }
    // Source 0 is not connected: nothing to track, nothing written.
    Select(0);
    EXPECT_EQ(Block(), kProcessOk);
    EXPECT_EQ(out[0], kUnwritten);
}

} // namespace
