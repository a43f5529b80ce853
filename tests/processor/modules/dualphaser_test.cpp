#include "effecttest.h"
#include "processor/modules/dualphaser.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace Norvell::Vantor;
using namespace VantorTest;

namespace {

struct Phaser {
    DualPhaserState s;
    Knobs<kPhaserParamCount> knobs{s.params};
    Phaser(float dryWet, float dualMode) {
        knobs[kPhaserRate1] = knobs[kPhaserRate2] = 0.5f;
        knobs[kPhaserDryWet] = dryWet;
        knobs[kPhaserDualMode] = dualMode;
        Init(s);
    }
};

} // namespace

TEST(DualPhaser, DualAndParallelMixesAtHalf) {
    // m = 0.5: dry 1 - m^2 = 0.75, wet ((2 - 2m) m + 1)(2m - m^2) = 1.125.
    const float dry = 0.75f;
    const float wet = 1.5f * 0.75f;
    // Each all-pass stage turns DC over, five stages give -1. Parallel: each
    // side phased on its own; dual: the sum 2 passes ten stages (+2).
    for (auto [dual, wetDc] : {std::pair{0.0f, -1.0f}, std::pair{1.0f, 2.0f}}) {
        Phaser p(0.5f, dual);
        const Signal out = RunEffect(p.s, Constant(32 * 500, 1.0f));
        EXPECT_NEAR(out.left.back(), dry + wet * wetDc, 1e-4f) << dual;
        EXPECT_NEAR(out.right.back(), dry + wet * wetDc, 1e-4f) << dual;
    }
}

TEST(DualPhaser, ParallelKeepsTheSidesApart) {
    Phaser p(1.0f, 0.0f);
    p.knobs[kPhaserFeedback1] = p.knobs[kPhaserFeedback2] = 0.7f;
    const Signal out = RunEffect(p.s, {Noise(32 * 200).left, std::vector<float>(32 * 200, 0.0f)});
    EXPECT_GT(Peak({out.left, out.left}), 0.1f);
    EXPECT_EQ(Peak({out.right, out.right}), 0.0f);
}

TEST(DualPhaser, SineLfoRunsAtHalfItsRate) {
    // Free law exp(5 r) x 0.08140386 - 0.08140386 (r for 1 Hz, and 0 for the
    // 0.001 Hz floor); synced 0.9 gives tempo / 60 Hz. After one second the
    // sine has made half a turn per Hz.
    const float r1Hz = std::log((1.0f + 0.08140386f) / 0.08140386f) / 5.0f;
    for (auto [rate, sync, hz] : {std::tuple{r1Hz, 0.0f, 1.0f}, std::tuple{0.0f, 0.0f, 0.001f},
                                  std::tuple{0.9f, 1.0f, 150.0f / 60.0f}}) {
        Phaser p(1.0f, 0.0f);
        p.knobs[kPhaserRate1] = rate;
        p.knobs[kPhaserMidiSync] = sync;
        RunSilence(p.s, 32 * 1000, Context(32000.0f, 150.0f));
        const float turns = std::fmod(0.5f * hz, 1.0f);
        EXPECT_NEAR(p.s.section[0].phase / 6.2831853f, turns, 2e-4f) << rate;
    }
}
