// Module records bound into the value store skip their change test while the
// store's change counter stands still; every way of writing the store must
// therefore move it.
#include "engine_harness.h"
#include "processor/modules.h"
#include "processor/vantorprocessor.h"

#include <gtest/gtest.h>

#include <vector>

using Norvell::Vantor::ModMatrixState;
using VantorTest::EngineHarness;

namespace {

const ModMatrixState& Matrix(EngineHarness& h) {
    return h.Processor().ModuleRegistry().matrices[0];
}

// Routes slot 1 of voice 1 from envelope 1 to the given destination.
void RouteSlot1(EngineHarness& h, int destination) {
    h.Set("voice1_matrix1_src", 11.5f / 28.0f);
    h.Set("voice1_matrix1_dest", (destination + 0.5f) / 48.0f);
    h.Set("voice1_matrix1_amount", 1.0f);
}

} // namespace

TEST(ValueGeneration, EveryWriteOfTheStoreReachesTheModules) {
    EngineHarness h;
    h.SetupPolyPatch();
    RouteSlot1(h, 9);
    h.RenderBlocks(2);
    EXPECT_EQ(Matrix(h).routeCount[9], 1u);

    // A host parameter change after several quiet blocks.
    h.Set("voice1_matrix1_dest", 10.5f / 48.0f);
    h.RenderBlocks(1);
    EXPECT_EQ(Matrix(h).routeCount[9], 0u);
    EXPECT_EQ(Matrix(h).routeCount[10], 1u);

    // A state blob taken with the first route, loaded back.
    EngineHarness other;
    other.SetupPolyPatch();
    RouteSlot1(other, 9);
    uint64_t size = 0;
    other.Processor().GetState(nullptr, &size);
    std::vector<uint8_t> blob(size);
    other.Processor().GetState(blob.data(), &size);
    h.RenderBlocks(3);
    ASSERT_TRUE(h.Processor().SetState(blob.data(), size));
    h.RenderBlocks(1);
    EXPECT_EQ(Matrix(h).routeCount[9], 1u);
    EXPECT_EQ(Matrix(h).routeCount[10], 0u);
}

TEST(ValueGeneration, ARecordBoundOutsideTheStoreComparesEveryBlock) {
    EngineHarness h;
    h.SetupPolyPatch();
    static float outside = 11.5f / 28.0f;
    ASSERT_EQ(h.Processor().SetParamSrc("mod_matrix-0", "src_0", 0, &outside), 0);
    h.Set("voice1_matrix1_dest", 9.5f / 48.0f);
    h.Set("voice1_matrix1_amount", 1.0f);
    h.RenderBlocks(2);
    EXPECT_EQ(Matrix(h).sourceUseCount[11], 1u);
    outside = 12.5f / 28.0f; // written behind the engine's back
    h.RenderBlocks(1);
    EXPECT_EQ(Matrix(h).sourceUseCount[11], 0u);
    EXPECT_EQ(Matrix(h).sourceUseCount[12], 1u);
}
