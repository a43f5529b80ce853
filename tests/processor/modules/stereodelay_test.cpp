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
        Run(Constant(32 * 500), ctx);
        echo = Run(Impulse(32 * 1400), ctx);
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
    linked.knob[kDelayLink] = 1.0f; // 0.5 already inverts
    linked.knob[kDelayPhaseInv] = 0.5f;
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

namespace {

float TimeLaw(float v) {
    const float t[] = {200, 400, 800, 1600, 3200, 6400, 12800, 17000, 22050};
    if (v >= 1.0f) return 44100.0f;
    if (v < 0.0f) return 400.0f;
    const int i = int(8.0f * v);
    return 2.0f * ((1.0f - (8.0f * v - i)) * t[i] + (8.0f * v - i) * t[i + 1]);
}

float SyncFactor(float v) {
    const float factors[] = {16,   12,         8, 6,     4,          3,    2.6666667f,  2,
                             1.5f, 1.3333334f, 1, 0.75f, 0.6666667f, 0.5f, 0.33333334f, 0.25f};
    if (v <= 0.0f) return 32.0f;
    int row = 0;
    while (row < 15 && !(v < 0.0625f * (row + 1))) ++row;
    return factors[row];
}

} // namespace

// The delay length of each line, call by call: two one-pole tempo followers, the target
// clamped to 65 ... 96000 - 32, and a glide of at most +31/32 or -31/63 samples per sample.
TEST(StereoDelay, LengthsGlideWithinTheirLimitsAndFollowTheTempo) {
    struct Step {
        int calls;
        float time1, time2, sync, tempo;
    };
    const Step script[] = {{300, 0.2f, 0.9f, 0, 120},   {2000, 0.9f, 0.01f, 0, 120},
                           {1500, 0.0f, 0.6f, 0, 120},  {3000, 0.7f, 0.3f, 1, 120},
                           {3000, 0.7f, 0.3f, 1, 77},   {2000, 0.95f, 0.05f, 1, 200},
                           {3000, 0.0f, -0.1f, 1, 2500}};
    for (float rate : {44100.0f, 96000.0f}) {
        Delay d(script[0].time1, script[0].time2);
        float len[2] = {std::clamp(TimeLaw(script[0].time1), 65.0f, 96000.0f),
                        std::clamp(TimeLaw(script[0].time2), 65.0f, 96000.0f)};
        float t1 = 120.0f, t2 = 120.0f;
        int call = 0;
        for (const Step& s : script) {
            d.knob[kDelayTime1] = s.time1;
            d.knob[kDelayTime2] = s.time2;
            d.knob[kDelayMidiSync] = s.sync;
            for (int c = 0; c < s.calls; ++c, ++call) {
                d.Run(Constant(32), Context(rate, s.tempo));
                t1 += (s.tempo - t1) * 0.001f;
                t2 += (t1 - t2) * 0.001f;
                for (int k = 0; k < 2; ++k) {
                    const float v = k ? s.time2 : s.time1;
                    float target = s.sync > 0 ? rate / std::min(t2 * SyncFactor(v) / 60.0f, 2000.0f)
                                              : TimeLaw(v);
                    target = std::clamp(target, 65.0f, 96000.0f - 32.0f);
                    float gap = len[k] - target;
                    for (int n = 0; n < 32; ++n)
                        gap -= std::clamp(gap * 0.005f, 32.0f / 63.0f - 1.0f, 31.0f / 32.0f);
                    len[k] = gap + target;
                    ASSERT_NEAR(d.s->line[k].len, len[k], 1e-3f * len[k])
                        << "line " << k << " call " << call << " at " << rate;
                }
            }
        }
    }
}
