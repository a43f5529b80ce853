#include "effecttest.h"
#include "processor/modules/flanger.h"

// Fully wet impulse response (the negated delayed signal); depth 0.5: 0.5^2 x 2000 = 500 samples.
std::vector<float> Response(float rate, float delay, float feedback, size_t settleBlocks) {
    Fx<FlangerState> f({rate, 0.5f, feedback, delay});
    for (size_t block = 0; block < settleBlocks; ++block) f.Run(Constant(32));
    return f.Run(Impulse(2048)).left;
}

// Delay 0: no sweep at any rate; rate below 0.01 (not above): the sweep stays at phase 0, its
// longest delay. fb = 1.9 feedback - 0.95: the second pass comes one loop (delay + 1) later, x fb.
TEST(Flanger, LongestDelayWithoutSweepAndTheFeedbackLaw) {
    for (auto [rate, delay] : {std::pair{0.8f, 0.0f}, {0.005f, 1.0f}})
        for (auto [settle, feedback] : {std::pair{0, 1.0f}, {777, 0.0f}, {5000, 0.5f}}) {
            const std::vector<float> out = Response(rate, delay, feedback, settle);
            EXPECT_FLOAT_EQ(out[500], -1.0f) << rate << " after " << settle;
            EXPECT_NEAR(out[1001], -(1.9f * feedback - 0.95f), 1e-6f) << feedback;
            EXPECT_FLOAT_EQ(Peak({out, out}), 1.0f);
        }
    EXPECT_NE(Response(0.011f, 1.0f, 0.5f, 5000)[500], -1.0f);
}

// The flanger written out from its description: a parabolic sweep at
// 10^(3 rate - 2) Hz over depth^2 x 2000 samples, feedback 1.9 fb - 0.95.
TEST(Flanger, MatchesTheModelSampleBySample) {
    struct Case {
        float rate, depth, feedback, delay, dryWet, sr;
    };
    for (const Case c : {Case{0.6f, 0.7f, 0.8f, 0.9f, 0.5f, 44100.0f},
                         Case{1.0f, 0.3f, 0.2f, 0.5f, 1.0f, 48000.0f},
                         Case{0.2f, 1.0f, 0.5f, 1.0f, 0.7f, 96000.0f}}) {
        Fx<FlangerState> fx({c.rate, c.depth, c.feedback, c.delay}, c.dryWet);
        const Signal x = Noise(32 * 2000);
        const Signal y = fx.Run(x, Context(c.sr));
        const float increment = 2.0f * std::pow(10.0f, 3.0f * c.rate - 2.0f) / c.sr;
        const float total = c.depth * c.depth * 2000.0f, sweep = total * c.delay;
        const float fb = 1.9f * c.feedback - 0.95f;
        std::vector<float> buf[2] = {std::vector<float>(2048), std::vector<float>(2048)};
        float p = 0.0f, last[2] = {};
        int w = 0;
        float worst = 0.0f;
        for (size_t n = 0; n < x.left.size(); ++n) {
            p += increment;
            if (p > 1.0f) p -= 2.0f;
            w = (w + 2047) % 2048;
            const float d = (1.0f - p * p) * sweep + (total - sweep);
            const int r = (static_cast<int>(d) + w) % 2048;
            const float t = d - std::trunc(d);
            const float in[2] = {x.left[n], x.right[n]}, out[2] = {y.left[n], y.right[n]};
            for (int ch = 0; ch < 2; ++ch) {
                buf[ch][w] = fb * last[ch] + in[ch];
                last[ch] = buf[ch][r] + (buf[ch][(r + 1) % 2048] - buf[ch][r]) * t;
                worst = std::max(
                    worst, std::fabs(in[ch] * (1 - c.dryWet) - c.dryWet * last[ch] - out[ch]));
            }
        }
        EXPECT_LT(worst, 1e-4f) << "rate " << c.rate;
    }
}
