#include "effecttest.h"
#include "processor/modules/stereodelay.h"

#include <gtest/gtest.h>

using namespace Norvell::Vantor;
using namespace VantorTest;

namespace {

// Free time law: 2 x the breakpoints 200 ... 22050 interpolated over 8 steps.
float TimeLaw(float v) {
    const float T[9] = {200, 400, 800, 1600, 3200, 6400, 12800, 17000, 22050};
    if (v >= 1.0f) return 44100.0f;
    const int i = static_cast<int>(8.0f * v);
    const float t = 8.0f * v - static_cast<float>(i);
    return 2.0f * ((1.0f - t) * T[i] + t * T[i + 1]);
}

// First echo of a unit impulse without feedback or damping: 0.6 x 0.5 into
// the line, scaled by 0.25, soft-clipped v (v^2 + 27) / (9v^2 + 27), x 2 / 0.25.
float FirstEcho() {
    const float m = 0.6f * 0.5f * 0.25f;
    return m * (m * m + 27.0f) / (9.0f * m * m + 27.0f) * 2.0f / 0.25f;
}

struct Delay {
    StereoDelayState s;
    Knobs<kDelayParamCount> knobs{s.params};
    Delay(float time1, float time2) {
        knobs[kDelayTime1] = time1;
        knobs[kDelayTime2] = time2;
        knobs[kDelayDryWet] = 1.0f;
        Init(s);
    }
    // Echo times of an impulse sent once the wet mix has settled.
    std::pair<size_t, size_t> Echoes(const ProcessContext& ctx = Context()) {
        RunSilence(s, 32 * 500, ctx);
        const Signal out = RunEffect(s, Impulse(32 * 1400), ctx);
        const auto first = [](const std::vector<float>& x) {
            size_t i = 0;
            while (i < x.size() && std::fabs(x[i]) < 0.5f * FirstEcho()) ++i;
            return i;
        };
        echo = out;
        return {first(out.left), first(out.right)};
    }
    Signal echo;
};

} // namespace

TEST(StereoDelay, FreeTimesAreInSamplesWhateverTheRate) {
    ASSERT_EQ(TimeLaw(1.0f), 44100.0f);
    ASSERT_EQ(TimeLaw(0.5f), 6400.0f);
    for (float rate : {44100.0f, 96000.0f}) {
        for (float time : {1.0f, 0.5f, 0.3f}) {
            Delay d(time, time);
            const auto [left, right] = d.Echoes(Context(rate));
            EXPECT_EQ(left, static_cast<size_t>(TimeLaw(time))) << time << " at " << rate;
            EXPECT_EQ(right, left);
            EXPECT_NEAR(d.echo.left[left], FirstEcho(), 1e-6f);
        }
    }
}

TEST(StereoDelay, SyncedTimeFollowsTheTempo) {
    Delay d(0.7f, 0.5f); // 0.75 periods per beat
    d.knobs[kDelayMidiSync] = 1.0f;
    RunSilence(d.s, 32 * 3000, Context(44100.0f, 120.0f));
    EXPECT_NEAR(d.s.line[0].len, 44100.0f / (120.0f * 0.75f / 60.0f), 0.01f);
    // After the tempo followers and the glide: twice as long, up to where the
    // single-precision followers stop moving (about 1e-4).
    RunSilence(d.s, 32 * 20000, Context(44100.0f, 60.0f));
    const float expected = 44100.0f / (60.0f * 0.75f / 60.0f);
    EXPECT_NEAR(d.s.line[0].len, expected, expected * 1e-4f);
}

TEST(StereoDelay, LinkAndPhaseInversionOfTheRightLine) {
    Delay apart(0.5f, 0.25f);
    auto [left, right] = apart.Echoes();
    EXPECT_EQ(left, static_cast<size_t>(TimeLaw(0.5f)));
    EXPECT_EQ(right, static_cast<size_t>(TimeLaw(0.25f)));
    EXPECT_GT(apart.echo.right[right], 0.0f);

    Delay linked(0.5f, 0.25f);
    linked.knobs[kDelayLink] = 1.0f;
    linked.knobs[kDelayPhaseInv] = 0.5f; // already inverts
    std::tie(left, right) = linked.Echoes();
    EXPECT_EQ(right, static_cast<size_t>(TimeLaw(0.5f)));
    EXPECT_NEAR(linked.echo.right[right], -FirstEcho(), 1e-6f);
}

TEST(StereoDelay, TimeChangeGlidesAtTheSpeedLimit) {
    Delay d(0.5f, 0.5f);
    RunSilence(d.s, 32 * 10);
    d.knobs[kDelayTime1] = 1.0f;
    RunSilence(d.s, 32);
    // A growing delay slows the read pointer by at most 1 - N / (2N - 1).
    EXPECT_NEAR(d.s.line[0].len, 6400.0f + 32.0f * (1.0f - 32.0f / 63.0f), 0.01f);
    RunSilence(d.s, 32 * 5000);
    EXPECT_NEAR(d.s.line[0].len, 44100.0f, 0.05f);
}

TEST(StereoDelay, PingPongAtFullFeedbackStaysBounded) {
    Delay d(0.1f, 0.15f);
    for (StereoDelayParam p : {kDelayPingPong, kDelayFeedback1, kDelayFeedback2}) d.knobs[p] = 1.0f;
    const float peak = Peak(RunEffect(d.s, Noise(32 * 4000, 1.0f)));
    const float tail = Peak(RunSilence(d.s, 32 * 4000));
    // The clipper holds each line within 2 / 0.0375.
    EXPECT_LE(peak, 2.0f / 0.0375f + 1e-3f);
    EXPECT_LE(tail, 2.0f / 0.0375f + 1e-3f);
    EXPECT_GT(tail, 1.0f); // loop gain above 1: the echoes sustain
}
