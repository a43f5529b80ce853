#include "processor/modules/modmatrix.h"

#include <gtest/gtest.h>

using namespace Norvell::Vantor;

namespace {

class ModMatrixTest : public ::testing::Test {
protected:
    void SetUp() override {
        Init(matrix, kSourceCount, kDestinationCount);
        for (int i = 0; i < 4 * kMatrixSlots; ++i) matrix.params.bound[i] = &values[i];
        for (int i = 1; i < kSourceCount; ++i) src[i] = srcData[i];
        for (int i = 1; i < kDestinationCount; ++i) dst[i] = dstData[i];
        ctx.frameCount = kBlockSize;
    }
    // Selector values in the middle of an index.
    void Slot(int slot, int source, int destination, float amount, float quantize = 0.0f) {
        const float v[4] = {(source + 0.5f) / 28.0f, (destination + 0.5f) / 48.0f, amount,
                            quantize};
        std::copy(v, v + 4, values + 4 * slot);
    }
    void Run() { Process(matrix, src, kSourceCount, dst, kDestinationCount, ctx); }

    ModMatrixState matrix;
    float values[4 * kMatrixSlots] = {};
    float srcData[kSourceCount][kBlockSize] = {};
    float dstData[kDestinationCount][kBlockSize] = {};
    float* src[kSourceCount] = {};
    float* dst[kDestinationCount] = {};
    ProcessContext ctx;
};

TEST_F(ModMatrixTest, DefaultsAndSelectorClamping) {
    for (auto& buffer : dstData) std::fill(buffer, buffer + kBlockSize, 7.0f);
    Run();
    EXPECT_EQ(matrix.sourceUseCount[0], 40u);
    for (int d = 1; d < kDestinationCount; ++d) ASSERT_EQ(dstData[d][31], 0.0f) << d;

    values[12] = 1.0f; // src_3: 28 clamps to 27
    values[13] = 2.0f;
    values[16] = 0.5f; // src_4: trunc(14)
    Run();
    EXPECT_EQ(matrix.sourceUseCount[27], 1u);
    EXPECT_EQ(matrix.sourceUseCount[14], 1u);
    uint32_t list[6];
    EXPECT_EQ(SourcesOfDestination(matrix, list, 47)[0], 27u);
    EXPECT_EQ(list[1], kNoSource);
}

TEST_F(ModMatrixTest, OnlyTheFirstSixSlotsOfADestinationAreSummed) {
    for (int k = 0; k < 7; ++k) { // powers of two show which routes count
        std::fill(srcData[11 + k], srcData[11 + k] + kBlockSize, static_cast<float>(1 << k));
        Slot(k, 11 + k, 9, 1.0f);
    }
    Run();
    EXPECT_EQ(dstData[9][0], 63.0f);
    EXPECT_EQ(matrix.sourceUseCount[17], 1u); // the dropped slot still counts
    Slot(0, 11, 10, 1.0f);                    // freeing a place lets it in
    Run();
    EXPECT_EQ(dstData[9][0], 126.0f);
}

TEST_F(ModMatrixTest, AmountCurveAndQuantize) {
    // Amount 0.75 reads the curve at 0.5: p = 31.5, between entries 31 and 32,
    // which lie on the line from breakpoint (30, 0.096605085) to (35, 0.11614486).
    const double half = 0.096605085 + 0.3 * (0.11614486 - 0.096605085);
    EXPECT_NEAR(half, 0.10247, 1e-5);
    struct Case {
        float x, amount, quantize;
        double expected;
    };
    for (const Case& c :
         {Case{0.5f, 1.0f, 0, 0.5}, Case{0.5f, 0.0f, 0, -0.5}, Case{0.5f, 0.5f, 0, 0.0},
          Case{1.0f, 0.75f, 0, half}, Case{1.0f, 0.25f, 0, -half}, Case{1.0f, -0.1f, 0, 0.0},
          Case{1.0f, 5.0f, 0, 1.0}, Case{0.0416f, 1.0f, 1, 0.0}, Case{0.0417f, 1.0f, 1, 1.0 / 12},
          Case{-1.0f / 24, 1.0f, 1, 0.0}}) {
        std::fill(srcData[8], srcData[8] + kBlockSize, c.x);
        Slot(0, 8, 7, c.amount, c.quantize);
        Run();
        EXPECT_NEAR(dstData[7][31], c.expected, 1e-6) << c.x << " " << c.amount;
    }
}

} // namespace
