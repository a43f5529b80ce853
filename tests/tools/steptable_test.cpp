#include "processor/modules/oscillator.h"
#include "tools/steptable/steptablegen.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <vector>

using namespace Norvell::Vantor;
using namespace Norvell::Vantor::Tools;

namespace {

TEST(StepTable, MatchesTheListedPoints) {
    const float* table = StepTable();
    const struct {
        int entry;
        float value;
    } points[] = {{0, 0.000024f},    {64, 0.066657f},   {128, 0.554626f},  {192, 1.169903f},
                  {208, 1.2008890f}, {256, 1.005473f},  {295, 0.8809243f}, {512, 1.039374f},
                  {768, 0.980753f},  {1024, 0.991836f}, {1536, 1.001029f}, {2047, 0.9999994f}};
    for (const auto& p : points) EXPECT_NEAR(table[p.entry], p.value, 0.002f) << p.entry;

    // Crosses 0.5 at entry 124, peaks at 208 and dips at 295.
    int crossing = 0;
    while (table[crossing] < 0.5f) ++crossing;
    EXPECT_EQ(crossing, 124);
    int peak = 0;
    for (int i = 0; i < 400; ++i)
        if (table[i] > table[peak]) peak = i;
    EXPECT_EQ(peak, 208);
    int dip = peak;
    for (int i = peak; i < 512; ++i)
        if (table[i] < table[dip]) dip = i;
    EXPECT_EQ(dip, 295);
}

TEST(StepTable, StoredTableIsTheGeneratorOutput) {
    const std::vector<double> generated = GenerateStepTable();
    ASSERT_EQ(generated.size(), static_cast<size_t>(kStepTableLength));
    const float* table = StepTable();
    for (int i = 0; i < kStepTableLength; ++i)
        ASSERT_NEAR(table[i], generated[static_cast<size_t>(i)], 1e-6) << i;
    EXPECT_EQ(generated.back(), 1.0);
}

std::vector<double> Magnitudes(const std::vector<double>& h, size_t n) {
    std::vector<std::complex<double>> a(n);
    for (size_t i = 0; i < h.size(); ++i) a[i] = h[i];
    Fft(a, false);
    std::vector<double> m(n / 2);
    for (size_t k = 0; k < m.size(); ++k) m[k] = std::abs(a[k]);
    return m;
}

TEST(StepTableGenerator, MinimumPhaseKeepsTheMagnitudeAndFrontLoadsTheEnergy) {
    const StepTableDesign design;
    const std::vector<double> linear = WindowedSinc(design);
    const std::vector<double> minimum =
        MinimumPhase(linear, design.fftSize, static_cast<int>(linear.size()));

    // Same magnitude response in the passband (up to the cutoff).
    const std::vector<double> a = Magnitudes(linear, 16384), b = Magnitudes(minimum, 16384);
    const size_t passband = static_cast<size_t>(0.85 * design.cutoff * 8192 / design.oversampling);
    for (size_t k = 0; k < passband; ++k) ASSERT_NEAR(b[k] / a[k], 1.0, 1e-3) << k;

    // Among filters with one magnitude response the minimum-phase one has the
    // most energy in every leading part (checked until the linear-phase
    // impulse is four samples past its centre; both totals then agree).
    double ea = 0.0, eb = 0.0;
    const size_t leading = linear.size() / 2 + 4 * static_cast<size_t>(design.oversampling);
    for (size_t i = 0; i < linear.size(); ++i) {
        ea += linear[i] * linear[i];
        eb += minimum[i] * minimum[i];
        if (i < leading) {
            ASSERT_GE(eb, ea) << i;
        }
    }
    EXPECT_NEAR(eb / ea, 1.0, 1e-3);
}

} // namespace
