#include "module_rig.h"
#include "processor/modules/modmatrix.h"
#include <gtest/gtest.h>
using namespace Norvell::Vantor;
using VantorTest::BindAll;
TEST(ModMatrixTest, DefaultsClampingSixRoutesCurveAndQuantize) {
    ModMatrixState matrix;
    float values[4 * kMatrixSlots] = {}, srcData[kSourceCount][32] = {},
                     dstData[kDestinationCount][32];
    float *src[kSourceCount] = {}, *dst[kDestinationCount] = {};
    Init(matrix, kSourceCount, kDestinationCount);
    BindAll(matrix.params, values);
    for (int i = 1; i < kSourceCount; ++i) src[i] = srcData[i];
    for (int i = 1; i < kDestinationCount; ++i) dst[i] = dstData[i];
    for (auto& buffer : dstData) std::fill(buffer, buffer + kBlockSize, 7.0f);
    const auto run = [&] { Process(matrix, src, 28, dst, 48, {120.0f, 44100.0f, 32, nullptr}); };
    // A slot with selectors in the middle of their index; the source's data filled with x.
    const auto route = [&](int slot, int source, int destination, float amount, float x,
                           float quantize = 0.0f) {
        float* v = values + 4 * slot;
        v[0] = (source + 0.5f) / 28.0f, v[1] = (destination + 0.5f) / 48.0f;
        v[2] = amount, v[3] = quantize;
        std::fill(srcData[source], srcData[source] + kBlockSize, x);
        run();
    };
    run();
    EXPECT_EQ(matrix.sourceUseCount[0], 40u);
    for (int d = 1; d < kDestinationCount; ++d) ASSERT_EQ(dstData[d][31], 0.0f) << d;
    values[12] = 1.0f, values[13] = 2.0f, values[16] = 0.5f; // sources 28 and 14, destination 96
    run();
    EXPECT_EQ(matrix.sourceUseCount[27], 1u);
    EXPECT_EQ(matrix.sourceUseCount[14], 1u);
    for (int k = 0; k < 7; ++k) route(k, 11 + k, 9, 1.0f, 1 << k); // 7 slots on 1 destination
    EXPECT_EQ(dstData[9][0], 63.0f);                               // only the first 6 count
    EXPECT_EQ(matrix.sourceUseCount[17], 1u);                      // the dropped slot still counts
    route(0, 11, 10, 1.0f, 1.0f);                                  // freeing a place lets it in
    EXPECT_EQ(dstData[9][0], 126.0f);
    // {x, amount, quantize, expected}; amount 0.75 reads the curve at 0.5, between 30 and 35.
    const double half = 0.096605085 + 0.3 * (0.11614486 - 0.096605085);
    const double cases[][4] = {{0.5, 1.0, 0, 0.5},         {0.5, 0.0, 0, -0.5},
                               {0.5, 0.5, 0, 0.0},         {1.0, 0.75, 0, half},
                               {1.0, 0.25, 0, -half},      {1.0, -0.1, 0, 0.0},
                               {1.0, 5.0, 0, 1.0},         {0.0416, 1.0, 1, 0.0},
                               {0.0417, 1.0, 1, 1.0 / 12}, {-1.0 / 24, 1.0, 1, 0.0}};
    for (const auto& [x, amount, quantize, expected] : cases) {
        route(0, 8, 7, amount, x, quantize);
        EXPECT_NEAR(dstData[7][31], expected, 1e-6) << x << " " << amount;
    }
}

// The matrix does not clear a destination it already left at zero; what it
// leaves must still read as zero after a route goes away, after a short block
// and when the render hands it another buffer.
TEST(ModMatrixTest, UnroutedDestinationsReadZeroAfterRoutesGoAway) {
    ModMatrixState matrix;
    float values[4 * kMatrixSlots] = {};
    float source[32];
    float bufferA[32];
    float bufferB[32];
    float* src[kSourceCount] = {};
    float* dst[kDestinationCount] = {};
    Init(matrix, kSourceCount, kDestinationCount);
    for (int i = 0; i < 4 * kMatrixSlots; ++i) matrix.params.bound[i] = &values[i];
    std::fill(source, source + kBlockSize, 0.25f);
    src[8] = source;
    dst[7] = bufferA;
    const auto run = [&](int frames) {
        Process(matrix, src, 28, dst, 48, {120.0f, 44100.0f, frames, nullptr});
    };
    const auto routeOn = [&](bool on) {
        values[0] = on ? 8.5f / 28.0f : 0.0f;
        values[1] = on ? 7.5f / 48.0f : 0.0f;
        values[2] = 1.0f;
    };

    routeOn(true);
    run(32);
    EXPECT_EQ(bufferA[31], 0.25f);
    routeOn(false);
    run(16); // a short block clears only its frames
    EXPECT_EQ(bufferA[15], 0.0f);
    EXPECT_EQ(bufferA[16], 0.25f);
    run(32);
    EXPECT_EQ(bufferA[31], 0.0f);

    std::fill(bufferB, bufferB + kBlockSize, 5.0f);
    dst[7] = bufferB;
    run(32);
    EXPECT_EQ(bufferB[0], 0.0f);
    EXPECT_EQ(bufferB[31], 0.0f);
}
