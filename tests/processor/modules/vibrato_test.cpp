#include "processor/modules/vibrato.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <tuple>
#include <vector>

using namespace Norvell::Vantor;

namespace {

constexpr float kUnwritten = 99.0f;

class VibratoTest : public ::testing::Test {
protected:
    void SetUp() override {
        Init(vib);
        for (uint32_t i = 0; i < kVibParamCount; ++i) vib.params.bound[i] = &values[i];
        values[kVibSpeed] = 1.0f;
    }
    // As the block render does: refresh, then process.
    void Run(int blocks, float sampleRate = 1000.0f) {
        const ProcessContext ctx{120.0f, sampleRate, kBlockSize, nullptr};
        wave.clear(), trig.clear();
        for (int b = 0; b < blocks; ++b) {
            float out0[kBlockSize], out1[kBlockSize];
            std::fill(out0, out0 + kBlockSize, kUnwritten);
            std::fill(out1, out1 + kBlockSize, kUnwritten);
            float* in[3] = {modwheel, sustain, nullptr};
            float* out[2] = {out0, out1};
            RefreshParams(vib);
            Process(vib, in, 0, out, 2, ctx);
            wave.insert(wave.end(), out0, out0 + kBlockSize);
            trig.insert(trig.end(), out1, out1 + kBlockSize);
        }
    }

    VibratoState vib;
    float values[kVibParamCount] = {};
    float modwheel[kBlockSize] = {}, sustain[kBlockSize] = {};
    std::vector<float> wave, trig;
};

TEST_F(VibratoTest, SpeedSourceAddsTheScaledModWheel) {
    // Wheel fully up (0.5) with speed_mod 1.0: s = speed + 0.5, here speed
    // table breakpoint 50 (3.7022228 Hz); speed_src 0.5 picks no input.
    std::fill(modwheel, modwheel + kBlockSize, 0.5f);
    values[kVibSpeedMod] = 1.0f;
    for (const auto& [src, speed, hz] :
         {std::tuple{1.0f / 3, 50 / 63.0f - 0.5f, 3.7022228}, {0.5f, 10 / 63.0f, 0.1625593}}) {
        values[kVibSpeedSrc] = src;
        values[kVibSpeed] = speed;
        Run(4);
        EXPECT_NEAR((trig[100] - trig[0]) / 100 * 1000, hz, hz * 1e-4);
    }
}

TEST_F(VibratoTest, AmplitudeRuleAndShiftedRisingSaw) {
    values[kVibAmp] = 0.3f;
    values[kVibWave] = 0.6f; // square
    values[kVibAmpSrc] = 2.0f / 3.0f;
    std::fill(sustain, sustain + kBlockSize, 0.5f);
    // Factor clamp(2 (2 amp_mod - 1) 0.5 + amp, -1, 1).
    for (const auto& [mod, factor] : {std::pair{1.0f, 1.0f}, {0.75f, 0.8f}, {0.0f, -0.7f}}) {
        values[kVibAmpMod] = mod;
        Run(3);
        for (size_t n = 0; n < wave.size(); ++n)
            ASSERT_FLOAT_EQ(wave[n], trig[n] >= 0.0f ? 0.5f * factor : 0.0f) << mod << " " << n;
    }
    // Wave 1 without an amplitude source: (phaseOut - 0.5) amp, -amp to 0.
    values[kVibAmpSrc] = 0.0f;
    values[kVibWave] = 0.2f;
    Run(4);
    for (size_t n = 0; n < wave.size(); ++n) ASSERT_FLOAT_EQ(wave[n], (trig[n] - 0.5f) * 0.3f);
    EXPECT_NEAR(*std::min_element(wave.begin(), wave.end()), -0.3, 0.01);
    EXPECT_NEAR(*std::max_element(wave.begin(), wave.end()), 0.0, 0.01);
}

TEST_F(VibratoTest, RandomWavesStepAtTheirRatesWithoutTrigger) {
    // wave 0.8: every ceil(rate / 27.59) + 1 samples at full speed; wave 1.0:
    // every ceil(rate / 141.84) + 1 (312 at 44.1 kHz) whatever the speed.
    values[kVibAmp] = 1.0f;
    for (const auto& [select, hz] : {std::pair{0.8f, 27.59}, {1.0f, 141.84}}) {
        values[kVibWave] = select;
        Run(300, 44100.0f);
        std::vector<size_t> at;
        for (size_t n = 1; n < wave.size(); ++n)
            if (wave[n] != wave[n - 1]) at.push_back(n);
        ASSERT_GE(at.size(), 4u);
        EXPECT_EQ(at[3] - at[2], std::ceil(44100 / hz) + 1) << select;
        EXPECT_EQ(*std::max_element(trig.begin(), trig.end()), kUnwritten);
        EXPECT_EQ(*std::min_element(trig.begin(), trig.end()), kUnwritten);
    }
    values[kVibWave] = 0.9f; // truncates to 4 without being 4.0: nothing written
    Run(1);
    EXPECT_EQ(wave[0], kUnwritten);
}

} // namespace
