#include "effecttest.h"
#include "processor/modules/dualphaser.h"

// m = 0.5: dry 1 - m^2 = 0.75, wet ((2 - 2m) m + 1)(2m - m^2) = 1.125. Each all-pass stage turns
// DC over: parallel phases each side through five (-1), dual passes the sum L + R through ten.
TEST(DualPhaser, DualAndParallelMixesAtHalf) {
    const float l = 1.0f, r = 0.5f;
    for (auto [dual, wetL, wetR] : {std::tuple{0.0f, -l, -r}, {1.0f, l + r, l + r}}) {
        Fx<DualPhaserState> p({0.5f, 0, 0, 0, 0, 0.5f, 0, 0, 0, 0, 0, dual}, 0.5f);
        const Signal out =
            p.Run({std::vector<float>(32 * 500, l), std::vector<float>(32 * 500, r)});
        EXPECT_NEAR(out.left.back(), 0.75f * l + 1.125f * wetL, 1e-4f) << dual;
        EXPECT_NEAR(out.right.back(), 0.75f * r + 1.125f * wetR, 1e-4f) << dual;
    }
}

// Sine LFOs and the all-pass corner, call by call, from the description:
// the sine steps by frameCount x 2 pi / rate x r / 2 per call, the second
// sine leads by pi x stereo, and the corner is 520 Hz x 2^(lfo x depth x 100 / 12)
// within 10..16000 Hz. Free rates follow exp(5 v) x 0.0814 - 0.0814; synced
// rates count 1/16 steps of the value as divisions of the tempo.
TEST(DualPhaser, SineLfoRatesAndCornersFollowTheirLaws) {
    struct Case {
        float rate1, rate2, depth1, depth2, stereo, sync, tempo, sr;
    };
    auto freeRate = [](float v) {
        return std::max(std::exp(5 * v) * 0.08140386f - 0.08140386f, 0.001f);
    };
    auto division = [](float v) {
        return v < 0.875f ? std::floor(v / 0.0625f) - 15 : v < 0.9375f ? 1 : 2;
    };
    for (const Case c : {Case{0.5f, 0.7f, 0.6f, 0.3f, 0.5f, 0, 120, 44100},
                         Case{1.0f, 0.0f, 1.0f, 0.05f, 1.0f, 0, 120, 96000},
                         Case{0.3f, 0.9f, 0.4f, 0.8f, 0.2f, 1, 100, 48000},
                         Case{0.99f, 0.01f, 0.5f, 0.5f, 0.0f, 1, 140, 44100}}) {
        Fx<DualPhaserState> fx(
            {c.rate1, 0, 0, c.depth1, 0, c.rate2, 0, 0, c.depth2, 0, c.sync, 0, c.stereo});
        float hz[2], phase[2] = {}, depth[2] = {}, stereo = 0.0f;
        for (int k = 0; k < 2; ++k) {
            const float v = k == 0 ? c.rate1 : c.rate2;
            const float f = division(v);
            hz[k] = c.sync == 0 ? freeRate(v) : f > 0 ? c.tempo * f / 60 : c.tempo / (60 * -f);
        }
        float worst = 0.0f;
        for (int call = 0; call < 3000; ++call) {
            fx.Run(Constant(32), Context(c.sr, c.tempo));
            stereo += (c.stereo - stereo) * 0.01f;
            depth[0] += (c.depth1 - depth[0]) * 0.01f;
            depth[1] += (c.depth2 - depth[1]) * 0.01f;
            const float lfo[2] = {std::sin(phase[0]), std::sin(phase[1] + 3.1415927f * stereo)};
            for (int k = 0; k < 2; ++k) {
                phase[k] += 32 * 6.2831855f / c.sr * hz[k] * 0.5f;
                if (phase[k] >= 6.2831855f) phase[k] -= 6.2831855f;
                const float f =
                    std::clamp(520 * std::exp2(lfo[k] * depth[k] * 100 / 12), 10.0f, 16000.0f);
                worst = std::max(worst, std::fabs(fx.s->section[k].corner / f - 1));
            }
        }
        EXPECT_LT(worst, 1e-3f) << "rates " << c.rate1 << ", " << c.rate2;
    }
}
