#include "processor/modules/ambientnoise.h"

#include <gtest/gtest.h>

#include <cmath>
#include <tuple>
#include <vector>

using namespace Norvell::Vantor;

namespace {

TEST(AmbientNoise, RecordingsHaveTheirLengthZeroMeanAndLevel) {
    const std::tuple<float, size_t, double> recordings[] = {
        {192000.0f, 65536, 2e-4}, {176400.0f, 65536, 2e-4}, {96000.0f, 32768, 2e-4},
        {88200.0f, 32768, 2e-4},  {48000.0f, 16384, 1e-4},  {44100.0f, 16384, 1e-4}};
    for (const auto& [rate, length, rms] : recordings) {
        const std::vector<float>& r = SelectAmbientRecording(AmbientRecordings(), rate).samples;
        ASSERT_EQ(r.size(), length) << rate;
        double sum = 0.0, power = 0.0, peak = 0.0;
        for (float x : r) {
            sum += x;
            power += double(x) * x;
            peak = std::max(peak, std::fabs(x) * 1.0);
        }
        EXPECT_NEAR(sum / double(length), 0.0, 1e-11) << rate;
        EXPECT_NEAR(std::sqrt(power / double(length)), rms, 1e-4 * rms) << rate;
        EXPECT_GT(peak, 3.0 * rms) << rate; // noise, not spikes
        EXPECT_LT(peak, 8.0 * rms) << rate;
    }
}

TEST(AmbientNoise, LoopsTheRecordingTimes013AndKeepsThePositionAcrossRates) {
    AmbientNoiseState noise;
    Init(noise);
    ProcessContext ctx;
    ctx.frameCount = 5; // ignored: whole blocks
    float block[kBlockSize], *out[1] = {block};
    size_t n = 0;
    // Blocks at a rate; the output is the recording for `expected` Hz (0: unchecked) from n.
    for (auto [rate, blocks, expected] : {std::tuple{44100.0f, 520, 44100.0f}, // past its end
                                          {48000.0f, 4, 48000.0f},
                                          {192000.0f, 600, 0.0f},
                                          {44100.5f, 2, 44100.0f}}) { // plays the 44100 one
        ctx.sampleRate = rate;
        const auto& rec = SelectAmbientRecording(AmbientRecordings(), expected).samples;
        for (int b = 0; b < blocks; ++b) {
            ASSERT_EQ(Process(noise, nullptr, 0, out, 1, ctx), kProcessOk);
            for (int i = 0; i < kBlockSize; ++i, ++n)
                ASSERT_TRUE(expected == 0 || block[i] == rec[n % rec.size()] * 0.13f) << n;
        }
    }
    EXPECT_EQ(Process(noise, nullptr, 0, nullptr, 1, ctx), kProcessMissing);
}

} // namespace
