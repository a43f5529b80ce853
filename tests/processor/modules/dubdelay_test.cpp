#include "effecttest.h"
#include "processor/modules/dubdelay.h"

// A peak of 2 sets the limiter envelope to 2 and is written limited to 1; the
// envelope then falls by the release, 0.9997 above feedback 0.5, else 0.8.
TEST(DubDelay, LimiterReleaseDependsOnFeedback) {
    for (auto [feedback, release] : {std::pair{0.6f, 0.9997f}, {0.5f, 0.8f}}) {
        Fx<DubDelayState> d({1.0f, 0.5f, feedback});
        d.Run(Impulse(32, 2.0f));
        EXPECT_NEAR(d.s->ch[0].env, 2.0f * std::pow(release, 31.0f), 1e-5f) << feedback;
        EXPECT_NEAR(d.s->ch[0].buf[static_cast<size_t>(d.s->w + 31)], 1.0f, 1e-6f);
    }
}

// The tone filter state never fades into tiny values: below 1e-10 it snaps to 0 with the envelope.
TEST(DubDelay, ToneStateSnapsToZeroWithTheEnvelope) {
    Fx<DubDelayState> d({1.0f, 0.5f, 0.6f}); // slow release: the envelope is far from 0
    d.Run(Impulse(32));
    ASSERT_NE(d.s->ch[0].lp, 0.0f);
    for (int block = 0; block < 200 && d.s->ch[0].lp != 0.0f; ++block, d.Run(Constant(32)))
        ASSERT_GE(std::fabs(d.s->ch[0].lp), 1e-10f);
    EXPECT_EQ(d.s->ch[0].lp, 0.0f);
    EXPECT_EQ(d.s->ch[0].env, 0.0f);
}

TEST(DubDelay, ModulationStepsOncePerCall) { // (9.5 rate + 0.5) x 628.31854 / sample rate
    for (float rate : {0.0f, 1.0f}) {
        Fx<DubDelayState> d({0.5f, 0.5f, 0, 0, rate});
        d.Run(Constant(32 * 3));
        EXPECT_FLOAT_EQ(d.s->lfoPhase, 3 * (9.5f * rate + 0.5f) * 628.31854f / 44100) << rate;
    }
}
