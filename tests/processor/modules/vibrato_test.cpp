#include "processor/modules/vibrato.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

using namespace Norvell::Vantor;

namespace {

constexpr float kUnwritten = 99.0f;

class VibratoTest : public ::testing::Test {
protected:
    void SetUp() override {
        Init(vib);
        for (uint32_t i = 0; i < kVibParamCount; ++i) vib.params.bound[i] = &values[i];
        ctx.frameCount = kBlockSize;
    }
    // Renders blocks the way the block render does: refresh, then process.
    void Run(int blocks) {
        for (int b = 0; b < blocks; ++b) {
            float out0[kBlockSize], out1[kBlockSize];
            std::fill(out0, out0 + kBlockSize, kUnwritten);
            std::fill(out1, out1 + kBlockSize, kUnwritten);
            float* in[3] = {modwheel, sustain, aftertouch};
            float* out[2] = {out0, out1};
            RefreshParams(vib);
            Process(vib, in, 0, out, 2, ctx);
            wave.insert(wave.end(), out0, out0 + kBlockSize);
            trig.insert(trig.end(), out1, out1 + kBlockSize);
        }
    }
    double PhaseSlope(size_t from, size_t to) const {
        return (trig[to] - trig[from]) / static_cast<double>(to - from) * ctx.sampleRate;
    }
    // Sample indices at which the output takes a new value.
    std::vector<size_t> Changes() const {
        std::vector<size_t> at;
        for (size_t n = 1; n < wave.size(); ++n)
            if (wave[n] != wave[n - 1]) at.push_back(n);
        return at;
    }

    VibratoState vib;
    float values[kVibParamCount] = {};
    ProcessContext ctx;
    float modwheel[kBlockSize] = {};
    float sustain[kBlockSize] = {};
    float aftertouch[kBlockSize] = {};
    std::vector<float> wave, trig;
};

TEST_F(VibratoTest, SpeedSourceAddsScaledControl) {
    // Mod wheel fully up (source value 0.5), speed_mod 1.0: s = speed + 0.5,
    // here breakpoint 50 of the speed table (3.7022228 Hz).
    ctx.sampleRate = 1000.0f;
    values[kVibSpeed] = 50.0f / 63.0f - 0.5f;
    values[kVibSpeedSrc] = 1.0f / 3.0f;
    values[kVibSpeedMod] = 1.0f;
    values[kVibAmp] = 1.0f;
    for (float& m : modwheel) m = 0.5f;
    Run(4);
    EXPECT_NEAR(PhaseSlope(0, 100), 3.7022228, 1e-3);
    // speed_src 0.5 (1.5 after scaling) picks no input: breakpoint 10.
    values[kVibSpeedSrc] = 0.5f;
    values[kVibSpeed] = 10.0f / 63.0f;
    Run(4);
    EXPECT_NEAR(PhaseSlope(128, 228), 0.1625593, 1e-4);
}

TEST_F(VibratoTest, AmplitudeSourceSetsTheFactor) {
    ctx.sampleRate = 1000.0f;
    values[kVibSpeed] = 1.0f;
    values[kVibWave] = 0.6f; // square
    values[kVibAmp] = 0.3f;
    values[kVibAmpSrc] = 2.0f / 3.0f; // sustain pedal
    for (float& s : sustain) s = 0.5f;
    // (amp_mod, factor): clamp(2 (2 amp_mod - 1) 0.5 + amp, -1, 1).
    for (const auto& [mod, factor] : {std::pair{1.0f, 1.0f}, {0.75f, 0.8f}, {0.0f, -0.7f}}) {
        values[kVibAmpMod] = mod;
        wave.clear(), trig.clear();
        Run(3);
        for (size_t n = 0; n < wave.size(); ++n)
            ASSERT_FLOAT_EQ(wave[n], trig[n] >= 0.0f ? 0.5f * factor : 0.0f) << mod << " " << n;
    }
}

TEST_F(VibratoTest, RisingSawWithoutAmplitudeSourceIsShiftedDown) {
    // (phaseOut - 0.5) * amp: from -amp at the cycle start up to 0.
    ctx.sampleRate = 1000.0f;
    values[kVibSpeed] = 1.0f;
    values[kVibWave] = 0.2f;
    values[kVibAmp] = 0.8f;
    Run(4);
    for (size_t n = 0; n < wave.size(); ++n) ASSERT_FLOAT_EQ(wave[n], (trig[n] - 0.5f) * 0.8f) << n;
    EXPECT_NEAR(*std::min_element(wave.begin(), wave.end()), -0.8, 0.03);
    EXPECT_NEAR(*std::max_element(wave.begin(), wave.end()), 0.0, 0.03);
}

TEST_F(VibratoTest, SoftenedSquareFallsToMinusOneInTheFirstHalf) {
    // lag 1.0: the first half is -c(j), c(j) = (ln(j + 130) - ln 130) /
    // (ln(L + 130) - ln 130), L = ceil(0.0249433 * rate) = 1100 at 44100 Hz.
    ctx.sampleRate = 44100.0f;
    values[kVibSpeed] = 0.5f;
    values[kVibWave] = 0.6f;
    values[kVibAmp] = 0.5f;
    values[kVibLag] = 1.0f;
    Run(40);
    const double length = std::ceil(0.0249433 * 44100.0);
    for (int j : {0, 1, 300, 1099})
        EXPECT_NEAR(wave[j], -0.5 * std::log((j + 130.0) / 130.0) / std::log((length + 130) / 130),
                    2e-6)
            << j;
    EXPECT_EQ(wave[1100], 0.0f);
}

TEST_F(VibratoTest, RandomWavesStepAtTheirRates) {
    // wave 0.8: steps at the vibrato rate, every ceil(rate / f) + 1 samples;
    // wave 1.0: at 141.84 Hz whatever the speed. Neither writes output 1.
    ctx.sampleRate = 44100.0f;
    values[kVibSpeed] = 1.0f;
    values[kVibAmp] = 1.0f;
    for (const auto& [select, hz] : {std::pair{0.8f, 27.59}, {1.0f, 141.84}}) {
        values[kVibWave] = select;
        wave.clear(), trig.clear();
        vib.steps = {}, vib.fastSteps = {};
        Run(400);
        const std::vector<size_t> at = Changes();
        ASSERT_GE(at.size(), 4u) << select;
        const double interval = std::ceil(44100.0 / hz) + 1;
        for (size_t i = 1; i < at.size(); ++i) EXPECT_EQ(at[i] - at[i - 1], interval) << select;
        for (size_t n = 0; n < wave.size(); ++n) {
            ASSERT_EQ(trig[n], kUnwritten);
            ASSERT_GE(wave[n], -0.5f);
            ASSERT_LT(wave[n], 0.5f);
        }
    }
    // Between the six steps (0.9 truncates to 4) nothing is written.
    values[kVibWave] = 0.9f;
    wave.clear(), trig.clear();
    Run(1);
    EXPECT_EQ(wave[0], kUnwritten);
    EXPECT_EQ(trig[0], kUnwritten);
}

} // namespace
