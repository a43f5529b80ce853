// Output level after rendering and the speed shown to the user.
#include <gtest/gtest.h>

#include <cmath>

#include "render/levels.h"
#include "render/progress.h"

using namespace Norvell::Render;

namespace {

struct Collect : AudioSink {
    std::vector<float> left, right;
    void Write(const float* l, const float* r, size_t n) override {
        left.insert(left.end(), l, l + n);
        right.insert(right.end(), r, r + n);
    }
};

} // namespace

TEST(Levels, NormalizingReplaysTheSpooledRenderAtTheNewLevel) {
    Spool spool;
    std::vector<float> left(10000), right(10000);
    for (size_t i = 0; i < left.size(); ++i) {
        left[i] = 0.25f * std::sin(0.01f * float(i));
        right[i] = -0.125f * float(i % 7) / 6.0f;
    }
    float peak = 0.0f;
    for (size_t start = 0; start < left.size(); start += 31) { // odd block lengths
        const size_t n = std::min<size_t>(31, left.size() - start);
        spool.Write(left.data() + start, right.data() + start, n);
        for (size_t i = start; i < start + n; ++i)
            peak = std::max({peak, std::fabs(left[i]), std::fabs(right[i])});
    }
    const double gain = NormalizeGain(peak, -6.0);
    EXPECT_NEAR(20.0 * std::log10(gain * peak), -6.0, 1e-9);
    Collect out;
    GainSink scaled(out, gain);
    spool.Replay(scaled);
    ASSERT_EQ(out.left.size(), left.size());
    for (size_t i = 0; i < left.size(); ++i) {
        ASSERT_FLOAT_EQ(out.left[i], left[i] * float(gain)) << i;
        ASSERT_FLOAT_EQ(out.right[i], right[i] * float(gain)) << i;
    }
    EXPECT_NEAR(scaled.Peak(), std::pow(10.0, -6.0 / 20.0), 1e-6);
    EXPECT_EQ(NormalizeGain(0.0f, -1.0), 1.0); // silence stays silence
    EXPECT_NEAR(DbToGain(-20.0), 0.1, 1e-15);
}

TEST(Levels, SpeedReadsAsMultiplesOfRealTime) {
    EXPECT_EQ(FormatSpeed(1.0, 44100 * 81 / 10, 44100), "8.1x");
    EXPECT_EQ(FormatSpeed(2.0, 48000, 48000), "0.50x");
    EXPECT_EQ(FormatSpeed(0.5, 44100 * 60, 44100), "120.0x");
    EXPECT_EQ(FormatSpeed(0.0, 44100, 44100), "-");
    EXPECT_EQ(FormatSpeed(1.0, 0, 44100), "-");
}
