#include "processor/modules/modmatrix.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace Norvell::Vantor;

namespace {

// Gain of the amount curve at x, from its breakpoints: 64 entries joined by
// straight lines, read at p = 63 x with linear interpolation.
double CurveAt(double x) {
    const std::vector<std::pair<int, double>> points = {
        {0, 0.0},         {10, 0.016405897}, {15, 0.035481337}, {20, 0.055590425},
        {25, 0.07498942}, {30, 0.096605085}, {35, 0.11614486},  {40, 0.13803843},
        {45, 0.17179084}, {50, 0.2818383},   {55, 0.4954502},   {60, 0.76736146},
        {63, 1.0}};
    auto entry = [&](int i) {
        for (size_t k = 1; k < points.size(); ++k) {
            const auto [i0, a] = points[k - 1];
            const auto [i1, b] = points[k];
            if (i <= i1) return a + (b - a) * (i - i0) / (i1 - i0);
        }
        return 1.0;
    };
    const double p = 63.0 * x;
    const int i = static_cast<int>(p);
    if (i >= 63) return entry(63);
    const double f = p - i;
    return (1.0 - f) * entry(i) + f * entry(i + 1);
}

// Selector values that land in the middle of an index.
float SourceValue(int index) {
    return (static_cast<float>(index) + 0.5f) / 28.0f;
}
float DestinationValue(int index) {
    return (static_cast<float>(index) + 0.5f) / 48.0f;
}

class ModMatrixTest : public ::testing::Test {
protected:
    void SetUp() override {
        Init(matrix, kSourceCount, kDestinationCount);
        for (int i = 0; i < 4 * kMatrixSlots; ++i) matrix.params.bound[i] = &values[i];
        for (int s = 1; s < kSourceCount; ++s) sources[s] = sourceData[s];
        for (int d = 1; d < kDestinationCount; ++d) destinations[d] = destinationData[d];
        ctx.frameCount = kBlockSize;
    }

    void Slot(int slot, int source, int destination, float amount, float quantize = 0.0f) {
        values[4 * slot] = SourceValue(source);
        values[4 * slot + 1] = DestinationValue(destination);
        values[4 * slot + 2] = amount;
        values[4 * slot + 3] = quantize;
    }
    void Constant(int source, float value) {
        for (float& x : sourceData[source]) x = value;
    }
    int32_t Run() { return Process(matrix, sources, kSourceCount, destinations, 48, ctx); }
    float Out(int destination, int n = 0) const { return destinationData[destination][n]; }

    ModMatrixState matrix;
    float values[4 * kMatrixSlots] = {};
    float sourceData[kSourceCount][kBlockSize] = {};
    float destinationData[kDestinationCount][kBlockSize] = {};
    float* sources[kSourceCount] = {};
    float* destinations[kDestinationCount] = {};
    ProcessContext ctx;
};

TEST_F(ModMatrixTest, DefaultSlotsRouteNothingAndCountSourceZeroForty) {
    for (auto& buffer : destinationData)
        for (float& x : buffer) x = 7.0f;
    for (int s = 1; s < kSourceCount; ++s) Constant(s, 1.0f);
    ASSERT_EQ(Run(), kProcessOk);

    EXPECT_EQ(matrix.sourceUseCount[0], 40u);
    for (int s = 1; s < kSourceCount; ++s) EXPECT_EQ(matrix.sourceUseCount[s], 0u) << s;
    for (int d = 1; d < kDestinationCount; ++d)
        for (int n = 0; n < kBlockSize; ++n) ASSERT_EQ(Out(d, n), 0.0f) << d;

    uint32_t list[6];
    SourcesOfDestination(matrix, list, 0);
    for (uint32_t s : list) EXPECT_EQ(s, 0u);
    SourcesOfDestination(matrix, list, 9);
    for (uint32_t s : list) EXPECT_EQ(s, kNoSource);
}

TEST_F(ModMatrixTest, OnlyTheFirstSixSlotsOfADestinationAreSummed) {
    // Sources 11..17 carry powers of two, so the sum tells which ones count.
    for (int k = 0; k < 7; ++k) {
        Constant(11 + k, static_cast<float>(1 << k));
        Slot(k, 11 + k, 9, 1.0f);
    }
    Run();
    EXPECT_FLOAT_EQ(Out(9), 63.0f);
    EXPECT_EQ(matrix.routeCount[9], 6u);
    EXPECT_EQ(matrix.sourceUseCount[17], 1u); // the dropped slot still counts
    EXPECT_EQ(matrix.sourceUseCount[0], 33u);

    uint32_t list[6];
    SourcesOfDestination(matrix, list, 9);
    for (int k = 0; k < 6; ++k) EXPECT_EQ(list[k], static_cast<uint32_t>(11 + k));

    // Moving slot 0 elsewhere lets the seventh in.
    Slot(0, 11, 10, 1.0f);
    Run();
    EXPECT_FLOAT_EQ(Out(9), 126.0f);
    EXPECT_FLOAT_EQ(Out(10), 1.0f);
}

TEST_F(ModMatrixTest, SelectorsTruncateAndClamp) {
    values[12] = 1.0f; // src_3
    values[13] = 1.0f; // dest_3
    values[16] = 0.5f; // src_4
    values[17] = -3.0f;
    values[20] = NAN;
    values[21] = 2.0f;
    Run();
    EXPECT_EQ(matrix.sourceUseCount[27], 1u);
    EXPECT_EQ(matrix.sourceUseCount[14], 1u);
    EXPECT_EQ(matrix.sourceUseCount[0], 38u);
    uint32_t list[6];
    SourcesOfDestination(matrix, list, 47);
    EXPECT_EQ(list[0], 27u);
    EXPECT_EQ(list[1], 0u);
    EXPECT_EQ(list[2], kNoSource);

    for (uint32_t& s : list) s = 99;
    SourcesOfDestination(matrix, list, 48);
    for (uint32_t s : list) EXPECT_EQ(s, 99u);
}

TEST_F(ModMatrixTest, AmountFollowsTheCurveWithSign) {
    for (int n = 0; n < kBlockSize; ++n) sourceData[8][n] = 0.01f * static_cast<float>(n + 1);
    const std::vector<std::pair<float, double>> cases = {
        {1.0f, 1.0},           {0.0f, -1.0},           {0.5f, 0.0},
        {0.75f, CurveAt(0.5)}, {0.25f, -CurveAt(0.5)}, {0.5f + 0.001f, CurveAt(2.0 * 0.001)},
        {3.0f, 1.0},   // clamped to the table end
        {-0.1f, 0.0}}; // negative amounts are skipped, not -1
    for (const auto& [amount, gain] : cases) {
        Slot(0, 8, 7, amount);
        Run();
        for (int n = 0; n < kBlockSize; ++n)
            ASSERT_NEAR(Out(7, n), sourceData[8][n] * gain, 2e-6) << amount << " n " << n;
    }
    EXPECT_NEAR(CurveAt(0.5), 0.10247, 1e-5);
    EXPECT_LT(std::fabs(CurveAt(0.002)), 3e-4); // the curve starts flat
}

TEST_F(ModMatrixTest, QuantizeRoundsToTwelfthsHalvesUp) {
    const double g = 1.0;
    const std::vector<std::pair<float, double>> cases = {
        {0.0416f, 0.0},           {0.0417f, g / 12.0},  {0.5f, 0.5},
        {1.0f / 24.0f, g / 12.0}, {-1.0f / 24.0f, 0.0}, {-0.0417f, -g / 12.0}};
    for (const auto& [x, expected] : cases) {
        Constant(1, x);
        Slot(0, 1, 3, 1.0f, 1.0f);
        Run();
        EXPECT_NEAR(Out(3), expected, 1e-7) << x;
    }
    // Quantize 0 passes the value through.
    Slot(0, 1, 3, 1.0f, 0.0f);
    Run();
    EXPECT_FLOAT_EQ(Out(3), -0.0417f);
}

TEST_F(ModMatrixTest, RoutesAddUpAndSourceZeroContributesNothing) {
    Constant(1, 0.25f);
    Constant(2, 0.5f);
    Slot(0, 1, 11, 1.0f);
    Slot(1, 2, 11, 0.0f);
    Slot(2, 0, 11, 1.0f); // source 0 has no buffer
    Run();
    EXPECT_FLOAT_EQ(Out(11, 31), -0.25f);
    EXPECT_EQ(matrix.routeCount[11], 3u);
}

TEST_F(ModMatrixTest, ZeroingFollowsTheFrameCountButSumsCoverTheBlock) {
    Constant(1, 1.0f);
    Slot(0, 1, 2, 1.0f);
    for (float& x : destinationData[2]) x = 5.0f;
    ctx.frameCount = 16;
    Run();
    EXPECT_FLOAT_EQ(Out(2, 15), 1.0f);
    EXPECT_FLOAT_EQ(Out(2, 16), 6.0f);
}

TEST_F(ModMatrixTest, MissingArraysAnswerTwo) {
    EXPECT_EQ(Process(matrix, nullptr, 28, destinations, 48, ctx), kProcessMissing);
    EXPECT_EQ(Process(matrix, sources, 28, nullptr, 48, ctx), kProcessMissing);
    // A null destination buffer is skipped.
    destinations[9] = nullptr;
    Slot(0, 1, 9, 1.0f);
    EXPECT_EQ(Run(), kProcessOk);
}

} // namespace
