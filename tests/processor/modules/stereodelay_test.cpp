#include "effecttest.h"
#include "processor/modules/stereodelay.h"

// First echo of a unit impulse without feedback or damping: 0.6 x 0.5 into the
// line, x 0.25, soft-clipped v (v^2 + 27) / (9v^2 + 27), then x 2 / 0.25.
constexpr float kIn = 0.6f * 0.5f * 0.25f;
constexpr float kEcho = kIn * (kIn * kIn + 27.0f) / (9.0f * kIn * kIn + 27.0f) * 2.0f / 0.25f;

struct Delay : Fx<StereoDelayState> {
    Signal echo;
    Delay(float time1, float time2) : Fx({time1, 0, 0, time2}) {}
    static bool Loud(float v) { return std::fabs(v) >= kEcho / 2; }
    // First echo on each side of an impulse sent once the wet mix has settled.
    std::pair<long, long> Echoes(const ProcessContext& ctx = Context()) {
        Run(Constant(32 * 500), ctx), echo = Run(Impulse(32 * 1400), ctx);
        return {std::ranges::find_if(echo.left, Loud) - echo.left.begin(),
                std::ranges::find_if(echo.right, Loud) - echo.right.begin()};
    }
};

TEST(StereoDelay, FreeTimesAreInSamplesWhateverTheRate) {
    // Twice the breakpoints 200 ... 22050 interpolated over 8 steps; 1.0 is 44100.
    for (float rate : {44100.0f, 96000.0f})
        for (auto [time, n] : {std::pair{1.0f, 44100L}, {0.5f, 6400L}, {0.3f, 2240L}}) {
            Delay d(time, time);
            EXPECT_EQ(d.Echoes(Context(rate)), std::pair(n, n)) << time << " at " << rate;
            EXPECT_NEAR(d.echo.left[n], kEcho, 1e-6f);
        }
}

TEST(StereoDelay, SyncedTimeFollowsTheTempo) {
    Delay d(0.7f, 0.5f); // 0.75 periods per beat
    d.knob[kDelayMidiSync] = 1.0f;
    d.Run(Constant(32 * 3000));
    EXPECT_NEAR(d.s->line[0].len, 29400.0f, 0.01f); // 44100 / (120 / 60 x 0.75)
}

TEST(StereoDelay, LinkAndPhaseInversionOfTheRightLine) {
    Delay apart(0.5f, 0.25f), linked(0.5f, 0.25f);
    EXPECT_EQ(apart.Echoes(), std::pair(6400L, 1600L));
    EXPECT_GT(apart.echo.right[1600], 0.0f);
    linked.knob[kDelayLink] = 1.0f, linked.knob[kDelayPhaseInv] = 0.5f; // 0.5 already inverts
    EXPECT_EQ(linked.Echoes(), std::pair(6400L, 6400L));
    EXPECT_NEAR(linked.echo.right[6400], -kEcho, 1e-6f);
}

TEST(StereoDelay, PingPongAtFullFeedbackStaysBounded) {
    Delay d(0.1f, 0.15f);
    d.knob[kDelayPingPong] = d.knob[kDelayFeedback1] = d.knob[kDelayFeedback2] = 1.0f;
    const float peak = Peak(d.Run(Noise(32 * 4000, 1.0f))), tail = Peak(d.Run(Constant(32 * 4000)));
    EXPECT_LE(std::max(peak, tail), 2.0f / 0.0375f + 1e-3f); // the clipper's bound on each line
    EXPECT_GT(tail, 1.0f); // loop gain above 1: the echoes sustain
}
