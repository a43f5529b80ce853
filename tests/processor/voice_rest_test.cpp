// Voices that are not sounding: when VCA 2 is open their oscillators and
// filter keep running, unless VCA 1 provably passes nothing in the block.
#include "engine_harness.h"
#include "processor/modules.h"

#include <gtest/gtest.h>

#include <algorithm>

using VantorTest::EngineHarness;

namespace {

using Norvell::Vantor::VcfState;

bool Resting(const VcfState& filter) {
    return std::all_of(filter.pole, filter.pole + 4, [](float p) { return p == 0.0f; });
}

TEST(VoiceRest, FilterRunsWithoutNotesOnlyWhileVca1CanPass) {
    EngineHarness h;
    h.SetupModulatedPatch(false); // VCA 1 gain 0 with envelope 1 on its level, VCA 2 gain 1
    const VcfState& filter = h.Processor().ModuleRegistry().filters[0];

    h.RenderBlocks(20);
    EXPECT_TRUE(Resting(filter));

    h.Set("voice1_vca1_gain", 0.5f); // a drone through VCA 1
    h.RenderBlocks(20);
    EXPECT_FALSE(Resting(filter));

    h.Set("voice1_vca1_gain", 0.0f);
    h.RenderBlocks(1); // VCA 1's smoothed level is 0 again after this block
    const float before[4] = {filter.pole[0], filter.pole[1], filter.pole[2], filter.pole[3]};
    h.RenderBlocks(20);
    EXPECT_TRUE(std::equal(before, before + 4, filter.pole));

    // Level modulation arriving within a block runs the voice from that block on.
    h.Set("voice1_matrix1_src", 1.5f / 28.0f); // modwheel
    h.Set("modwheel", 1.0f);
    h.RenderBlocks(1);
    EXPECT_FALSE(std::equal(before, before + 4, filter.pole));

    // ... and while its smoothed level decays after the modulation has stopped.
    h.Set("modwheel", 0.0f);
    h.RenderBlocks(1); // the modwheel ramps down to 0 over this block
    const float decaying[4] = {filter.pole[0], filter.pole[1], filter.pole[2], filter.pole[3]};
    h.RenderBlocks(1);
    EXPECT_FALSE(std::equal(decaying, decaying + 4, filter.pole));
}

} // namespace
