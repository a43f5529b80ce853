#include "module_rig.h"
#include "processor/modules/vibrato.h"
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
using namespace Norvell::Vantor;
using VantorTest::BindAll;
TEST(VibratoTest, SourcesShapesAndRandomWaves) {
    VibratoState vib;
    float values[kVibParamCount] = {1.0f}, wheel[kBlockSize] = {}, sustain[kBlockSize] = {};
    std::vector<float> wave, trig;
    Init(vib);
    BindAll(vib.params, values);
    const auto run = [&](int blocks, float rate) { // as the render does; unwritten stays 99
        wave.assign(blocks * kBlockSize, 99.0f);
        trig.assign(blocks * kBlockSize, 99.0f);
        for (int b = 0; b < blocks; ++b) {
            float *in[3] = {wheel, sustain, nullptr}, *out[2] = {&wave[b * 32], &trig[b * 32]};
            RefreshParams(vib);
            Process(vib, in, 0, out, 2, {120.0f, rate, kBlockSize, nullptr});
        }
    };
    // The wheel up (0.5), speed_mod 1: speed + 0.5, breakpoint 50 (3.7022228 Hz); src 0.5: none.
    std::fill(wheel, wheel + kBlockSize, 0.5f);
    values[kVibSpeedMod] = 1.0f;
    for (const auto& [src, speed, hz] :
         {std::tuple{1.0f / 3, 50 / 63.0f - 0.5f, 3.7022228}, {0.5f, 10 / 63.0f, 0.1625593}}) {
        values[kVibSpeedSrc] = src;
        values[kVibSpeed] = speed;
        run(4, 1000.0f);
        EXPECT_NEAR((trig[100] - trig[0]) / 100 * 1000, hz, hz * 1e-4);
    }
    std::fill(sustain, sustain + kBlockSize, 0.5f); // factor clamp(2 (2 amp_mod - 1) 0.5 + amp)
    values[kVibSpeed] = 1.0f;
    values[kVibSpeedSrc] = 0.0f;
    values[kVibAmp] = 0.3f;
    values[kVibWave] = 0.6f;
    values[kVibAmpSrc] = 2.0f / 3.0f;
    for (const auto& [mod, factor] : {std::pair{1.0f, 1.0f}, {0.75f, 0.8f}, {0.0f, -0.7f}}) {
        values[kVibAmpMod] = mod;
        run(3, 1000.0f);
        for (size_t n = 0; n < wave.size(); ++n)
            ASSERT_FLOAT_EQ(wave[n], trig[n] >= 0.0f ? 0.5f * factor : 0.0f) << mod << " " << n;
    }
    values[kVibAmpSrc] = 0.0f; // wave 1 without an amplitude source:
    values[kVibWave] = 0.2f;
    run(4, 1000.0f); // (phase - 0.5) amp, -amp to 0
    for (size_t n = 0; n < wave.size(); ++n) ASSERT_FLOAT_EQ(wave[n], (trig[n] - 0.5f) * 0.3f);
    // Waves 0.8 (4) and 1.0 (5) step every ceil(rate / Hz) + 1 samples; neither writes trig.
    values[kVibAmp] = 1.0f;
    for (const auto& [select, hz] : {std::pair{0.8f, 27.59}, {1.0f, 141.84}}) {
        values[kVibWave] = select;
        run(300, 44100.0f);
        std::vector<size_t> at;
        for (size_t n = 1; n < wave.size(); ++n)
            if (wave[n] != wave[n - 1]) at.push_back(n);
        ASSERT_GE(at.size(), 4u);
        EXPECT_EQ(at[3] - at[2], std::ceil(44100 / hz) + 1) << select;
        EXPECT_EQ(std::count(trig.begin(), trig.end(), 99.0f), 300 * kBlockSize);
    }
}

// Periodic waves at the top rate (27.59 Hz), written from their steps: the softened
// first half differs from the LFO's (the square falls to -c, the saws scale by c).
TEST(VibratoTest, SoftenedPeriodicWavesMatchTheModel) {
    for (int wave = 0; wave < 4; ++wave) {
        for (float ampSrc : {0.0f, 1.0f / 3.0f}) {
            SCOPED_TRACE(testing::Message() << "wave " << wave << " amp_src " << ampSrc);
            VibratoState vib;
            Init(vib);
            float values[kVibParamCount] = {1.0f, 0.0f,   0.0f, wave / 5.0f,
                                            0.4f, ampSrc, 0.8f, 1.0f};
            BindAll(vib.params, values);
            const float rate = 44100.0f;
            const int length = int(std::ceil(0.0249433f * rate));
            const float span = std::log(float(length) + 130.0f) - 4.8675346f;
            double phase = -0.5;
            int counter = 0;
            bool firstHalf = false;
            float wheel[kBlockSize], out1[kBlockSize], out2[kBlockSize];
            for (int b = 0; b < 300; ++b) {
                for (int n = 0; n < kBlockSize; ++n)
                    wheel[n] = 0.5f * float(std::sin((b * 32 + n) * 0.001));
                float *in[3] = {wheel, wheel, wheel}, *out[2] = {out1, out2};
                RefreshParams(vib);
                Process(vib, in, 0, out, 2, {120.0f, rate, kBlockSize, nullptr});
                for (int n = 0; n < kBlockSize; ++n) {
                    phase += 27.59f / rate;
                    if (phase > 0.5) {
                        phase = -0.5;
                        counter = 0;
                    }
                    const float p = float(phase);
                    float phaseOut = p, falling = -p, square = p >= 0 ? 0.5f : 0.0f;
                    const float triangle = p >= 0 ? 0.5f - 2.0f * p : 2.0f * p + 0.5f;
                    const auto curve = [&] {
                        return (std::log(counter++ + 130.0f) - 4.8675346f) / span;
                    };
                    if (p >= 0) {
                        if (firstHalf) {
                            counter = 0;
                            firstHalf = false;
                        }
                        if (counter < length) square = 0.5f * curve();
                    } else {
                        if (counter < length) {
                            const float c = curve();
                            falling *= c;
                            square = -c;
                            phaseOut += std::fabs(c - 1.0f) * 0.5f;
                        }
                        firstHalf = true;
                    }
                    const float w[4] = {triangle, phaseOut, falling, square};
                    const float expected =
                        ampSrc == 0 ? (wave == 1 ? (phaseOut - 0.5f) * 0.4f : w[wave] * 0.4f)
                                    : std::clamp(2 * 0.6f * wheel[n] + 0.4f, -1.0f, 1.0f) * w[wave];
                    ASSERT_NEAR(out1[n], expected, 2e-5f) << "sample " << b * 32 + n;
                    ASSERT_NEAR(out2[n], phaseOut, 2e-5f) << "sample " << b * 32 + n;
                }
            }
        }
    }
}
