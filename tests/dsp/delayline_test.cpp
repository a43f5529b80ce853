#include "dsp/delayline.h"
#include <algorithm>
#include <gtest/gtest.h>

using Norvell::dsp::DelayLine;

bool AllZero(const DelayLine& line) {
    return std::ranges::all_of(line.Samples(), [](float v) { return v == 0.0f; });
}

// A counting-down line: the newest sample sits at the position, older ones after it.
TEST(DelayLine, CountingDownWrapsAndMirrors) {
    DelayLine line;
    line.Allocate(5, true);
    for (int i = 1; i <= 7; ++i) line.Push(static_cast<float>(i));
    EXPECT_EQ(line.Position(), 3); // 7 steps back from 0 on a ring of 5
    const float* newest = line.Data() + line.Position();
    for (int k = 0; k < 5; ++k) EXPECT_EQ(newest[k], static_cast<float>(7 - k)) << k;
}

TEST(DelayLine, CountingUpStoresAheadThenAdvances) {
    DelayLine line;
    line.Allocate(4);
    line.Advance(3);
    line.StoreAhead(0, 1.0f);
    line.StoreAhead(1, 2.0f); // wraps to the start
    line.Advance(2);
    EXPECT_EQ(line.Position(), 1);
    EXPECT_EQ(line[3], 1.0f);
    EXPECT_EQ(line[0], 2.0f);
}

// Clearing touches only what was written, yet must leave no written sample
// behind: across the wrap, in the mirror, after a whole turn, after a change
// of length.
TEST(DelayLine, ClearLeavesTheWholeRingSilent) {
    const auto check = [](int pushes, int advances, bool mirror) {
        DelayLine line;
        line.Allocate(16, mirror);
        for (int i = 0; i < pushes; ++i) line.Push(1.0f);
        for (int i = 0; i < advances; ++i) {
            line.StoreAhead(0, 1.0f);
            line.Advance(1);
        }
        line.Clear();
        EXPECT_TRUE(AllZero(line)) << pushes << " " << advances << " " << mirror;
        EXPECT_EQ(line.Position(), 0);
    };
    for (int n : {1, 5, 15, 16, 40}) {
        check(n, 0, false);
        check(n, 0, true);
        check(0, n, false);
    }
}

TEST(DelayLine, ClearAfterALengthChangeCoversTheNewRing) {
    DelayLine line;
    line.Allocate(32);
    line.SetLength(8);
    std::fill(line.Data(), line.Data() + 8, 1.0f); // written behind the line's back
    line.Clear();
    EXPECT_TRUE(AllZero(line));
}

// Written samples stay where they are until the next clear: a clear only
// resets what it must.
TEST(DelayLine, SecondClearWithoutWritesKeepsOtherSamples) {
    DelayLine line;
    line.Allocate(8);
    line.Clear();
    line[5] = 3.0f; // not through the line: invisible to the next clear
    line.Clear();
    EXPECT_EQ(line[5], 3.0f);
}
