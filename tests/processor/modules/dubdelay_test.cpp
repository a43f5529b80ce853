#include "effecttest.h"
#include "processor/modules/dubdelay.h"

// A peak of 2 sets the limiter envelope to 2 and is written limited to 1; the
// envelope then falls by the release, 0.9997 above feedback 0.5, else 0.8.
TEST(DubDelay, LimiterReleaseDependsOnFeedback) {
    for (auto [feedback, release] : {std::pair{0.6f, 0.9997f}, {0.5f, 0.8f}}) {
        Fx<DubDelayState> d({1.0f, 0.5f, feedback});
        d.Run(Impulse(32, 2.0f));
        EXPECT_NEAR(d.s->ch[0].env, 2.0f * std::pow(release, 31.0f), 1e-5f) << feedback;
        EXPECT_NEAR(d.s->ch[0].buf[d.s->ch[0].buf.Position() + 31], 1.0f, 1e-6f);
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

namespace {

// Both channels written from the algorithm; one call per 32-sample block.
struct DubModel {
    static constexpr int kMax = 768000;
    std::vector<float> buf[2] = {std::vector<float>(kMax + 1), std::vector<float>(kMax + 1)};
    int w = 0;
    float pos[2] = {}, tgt[2] = {}, step[2] = {}, lp[2] = {}, env[2] = {}, phase = 0;
    void Block(const float* p, float rate, const float* const* in, float* const* out) {
        const float delay = rate * (0.988f * p[0] + 0.012f), depth = p[3] * 0.049f * delay;
        const float inc = (9.5f * p[4] + 0.5f) * 628.31854f / rate, fbk = std::fabs(p[2]);
        const float release = p[2] > 0.5f ? 0.9997f : 0.8f, x = 2.0f * p[1] - 1.0f;
        const float low = x >= 0 ? 1.0f : 1.0f + x, high = x >= 0 ? -0.5f * x : -x;
        const float f =
            x >= 0 ? std::pow(10.0f, 1.125f * x + 2.2f) : std::pow(10.0f, 2.25f * x + 4.45f);
        const float tone = std::exp(-6.2831855f * f / rate);
        for (int n = 0; n < 32; ++n) {
            if (n == 0) {
                const float s = std::sin(phase);
                phase += inc;
                if (phase > 6.2831855f) phase -= 6.2831855f;
                for (int c = 0; c < 2; ++c) {
                    tgt[c] += (delay - depth - s * depth - tgt[c]) * 0.01f;
                    step[c] = (tgt[c] - pos[c]) * 0.01f;
                }
            }
            if (--w < 0) w = kMax;
            for (int c = 0; c < 2; ++c) {
                pos[c] += step[c];
                int r = int(pos[c]) + w;
                if (r > kMax) r -= kMax + 1;
                const float next = r + 1 > kMax ? buf[c][0] : buf[c][r + 1];
                const float d = buf[c][r] + (next - buf[c][r]) * (pos[c] - std::trunc(pos[c]));
                const float y = d * fbk + in[c][n];
                lp[c] = y + (lp[c] - y) * tone;
                float z = y * low + lp[c] * high;
                env[c] = std::max(std::fabs(z), env[c] * release);
                if (env[c] > 1.0f) z /= env[c];
                buf[c][w] = z;
                out[c][n] = in[c][n] * (1.0f - p[5]) + d * p[5];
            }
        }
        for (int c = 0; c < 2; ++c)
            if (std::fabs(lp[c]) < 1e-10f) lp[c] = env[c] = 0.0f;
    }
};

} // namespace

TEST(DubDelay, MatchesTheModelSampleBySample) {
    // delay time, fb tone, feedback, lfo depth, lfo rate, dry/wet; sample rate
    const float cases[][7] = {{0.3f, 0.8f, 0.7f, 0.5f, 0.6f, 0.6f, 44100.0f},
                              {0.02f, 0.2f, 0.95f, 1.0f, 1.0f, 1.0f, 48000.0f},
                              {0.0f, 0.5f, -0.4f, 0.2f, 0.0f, 0.3f, 96000.0f}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "delay time " << c[0] << " at " << c[6]);
        Fx<DubDelayState> d({c[0], c[1], c[2], c[3], c[4]}, c[5]);
        auto model = std::make_unique<DubModel>();
        const Signal x = Noise(32 * 1500, 0.9f);
        for (size_t at = 0; at < x.left.size(); at += 32) {
            Signal in = Constant(32), y = Constant(32), expected = Constant(32);
            for (int n = 0; n < 32 && at < 3200; ++n) {
                in.left[n] = x.left[at + n];
                in.right[n] = x.right[at + n];
            }
            float *ins[2] = {in.left.data(), in.right.data()},
                  *outs[2] = {y.left.data(), y.right.data()};
            float* exp[2] = {expected.left.data(), expected.right.data()};
            model->Block(c, c[6], ins, exp);
            Process(*d.s, ins, 2, outs, 2, Context(c[6]));
            for (int n = 0; n < 32; ++n) {
                ASSERT_NEAR(y.left[n], expected.left[n], 1e-4f) << at + n;
                ASSERT_NEAR(y.right[n], expected.right[n], 1e-4f) << at + n;
            }
        }
    }
}
