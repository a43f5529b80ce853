#include "processor/modules/ambientnoise.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace Norvell::Vantor;

namespace {

struct Expected {
    float rate;
    size_t length;
    double rms;
};
// Lengths and levels of the six recordings, in selection order.
constexpr Expected kRecordings[] = {{192000.0f, 65536, 2e-4}, {176400.0f, 65536, 2e-4},
                                    {96000.0f, 32768, 2e-4},  {88200.0f, 32768, 2e-4},
                                    {48000.0f, 16384, 1e-4},  {44100.0f, 16384, 1e-4}};

TEST(AmbientNoise, RecordingsHaveTheirLengthZeroMeanAndLevel) {
    const AmbientRecordingSet& set = AmbientRecordings();
    for (const Expected& e : kRecordings) {
        const AmbientRecording& r = SelectAmbientRecording(set, e.rate);
        ASSERT_EQ(r.samples.size(), e.length) << e.rate;
        double sum = 0.0, power = 0.0, peak = 0.0;
        for (float x : r.samples) {
            sum += x;
            power += double(x) * x;
            peak = std::max(peak, double(std::fabs(x)));
        }
        EXPECT_NEAR(sum / double(e.length), 0.0, 1e-11) << e.rate;
        EXPECT_NEAR(std::sqrt(power / double(e.length)), e.rms, 1e-4 * e.rms) << e.rate;
        // Noise, not a constant or a few spikes.
        EXPECT_GT(peak, 3.0 * e.rms) << e.rate;
        EXPECT_LT(peak, 8.0 * e.rms) << e.rate;
    }
    // Distinct recordings, and the same ones every time they are asked for.
    EXPECT_NE(set[0].samples[0], set[1].samples[0]);
    EXPECT_EQ(&AmbientRecordings(), &set);
}

class AmbientNoiseRun : public ::testing::Test {
protected:
    void SetUp() override { Init(noise); }
    std::vector<float> Blocks(float rate, int blocks) {
        ctx.sampleRate = rate;
        std::vector<float> result;
        for (int b = 0; b < blocks; ++b) {
            float* out[1] = {block};
            EXPECT_EQ(Process(noise, nullptr, 0, out, 1, ctx), kProcessOk);
            result.insert(result.end(), block, block + kBlockSize);
        }
        return result;
    }
    // Expected output: the recording from a position, times 0.13, looping.
    static void ExpectPlays(const std::vector<float>& y, float rate, size_t position) {
        const std::vector<float>& rec = SelectAmbientRecording(AmbientRecordings(), rate).samples;
        for (size_t n = 0; n < y.size(); ++n)
            ASSERT_EQ(y[n], rec[(position + n) % rec.size()] * 0.13f) << n;
    }

    AmbientNoiseState noise;
    ProcessContext ctx;
    float block[kBlockSize] = {};
};

TEST_F(AmbientNoiseRun, LoopsTheRecordingTimes013WhateverTheFrameCount) {
    ctx.frameCount = 5;
    // 520 blocks run past the end of the 16384-sample recording.
    ExpectPlays(Blocks(44100.0f, 520), 44100.0f, 0);
}

TEST_F(AmbientNoiseRun, RateChangeSwitchesRecordingAndKeepsThePosition) {
    Blocks(44100.0f, 3);
    ExpectPlays(Blocks(48000.0f, 4), 48000.0f, 96);
    // 600 blocks at 192 kHz reach 19200 + 224, past the 16384 of the next one.
    Blocks(192000.0f, 600);
    ExpectPlays(Blocks(44100.0f, 2), 44100.0f, (224 + 19200) % 16384);
}

TEST_F(AmbientNoiseRun, OtherRatesPlayThe44100RecordingAndAMissingOutputIsReported) {
    ExpectPlays(Blocks(44100.5f, 2), 44100.0f, 0);
    EXPECT_EQ(&SelectAmbientRecording(AmbientRecordings(), 96000.5f),
              &SelectAmbientRecording(AmbientRecordings(), 44100.0f));
    EXPECT_EQ(Process(noise, nullptr, 0, nullptr, 1, ctx), kProcessMissing);
}

} // namespace
