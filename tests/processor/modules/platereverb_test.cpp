#include "effecttest.h"
#include "processor/modules/platereverb.h"

using S = PlateReverbState;

// Parameters: in gain 1, brightness 1, decay, time; diffusion, damping and feedback 0.
TEST(PlateReverb, PreDelayLengths) { // trunc(time^2 x 131072), down to a multiple of 4, at least 4
    for (auto [time, length] : {std::pair{1.0f, 131072}, {0.5f, 32768}, {0.01f, 12}, {0.0f, 4}}) {
        Fx<S> r({1, 0, 1, 0, 0.5f, 0, time});
        r.Run(Impulse(32));
        EXPECT_EQ(r.s->ring[S::kP].line.Length(), length) << time;
    }
}

// Decay 0: nothing reaches the second pair of either tank half, yet the other taps sound.
TEST(PlateReverb, DecayZeroRemovesTheRecirculation) {
    Fx<S> r({1, 0, 1, 0, 0, 0, 0});
    EXPECT_GT(Peak(r.Run(Impulse(32 * 1000))), 1e-3f);
    for (int e : {S::kA2, S::kT2, S::kA4, S::kT4})
        EXPECT_EQ(std::ranges::count(r.s->ring[e].line.Samples(), 0.0f),
                  r.s->ring[e].line.Samples().size())
            << e;
}

TEST(PlateReverb, InGainZeroSilencesTheWetSignal) {
    Fx<S> r({1, 0, 1, 0, 0.8f, 0, 0.1f});
    r.Run(Noise(32 * 500));
    const float start = r.s->wetLevel;
    r.knob[kReverbInGain] = 0.0f;
    r.Run(Noise(32 * 10));
    EXPECT_NEAR(r.s->wetLevel, start * std::pow(0.95f, 10.0f), 1e-5f); // 5 % per call
    r.Run(Noise(32 * 1500));
    EXPECT_EQ(Peak(r.Run(Noise(32 * 10))), 0.0f);
}

// Without tank recirculation, damping, input low-pass or pre-delay diffusion the network is
// a chain of delays, combs and all-passes: its impulse response at the seven taps of each
// side (only those on T1 and T3 carry signal) is computed here sample by sample.
TEST(PlateReverb, PreDelayAndTapsGiveTheImpulseResponse) {
    for (float time : {0.1f, 0.23f}) {
        Fx<PlateReverbState> r({0.8f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, time});
        r.Run(Constant(32 * 400)); // the wet level follower settles on `in gain`
        const int n = 32 * 1100, pre = int(time * time * 131072.0f) / 4 * 4;
        const Signal y = r.Run(Impulse(n));
        std::vector<float> x(n, 0.0f);
        x[0] = 1.0f; // the mono sum of a unit impulse on both sides
        const auto delayed = [&](const std::vector<float>& h, int t, int length) {
            return t >= length ? h[t - length] : 0.0f;
        };
        // Each element keeps what it wrote; all-pass w = x - g d, out d + g w; comb y = g (x + d).
        const auto allpass = [&](const std::vector<float>& in, int length, float g) {
            std::vector<float> w(n), out(n);
            for (int t = 0; t < n; ++t) {
                const float d = delayed(w, t, length);
                w[t] = in[t] - g * d;
                out[t] = d + g * w[t];
            }
            return std::pair{w, out};
        };
        std::vector<float> p(n), s(n, 0.0f);
        for (int t = 0; t < n; ++t) p[t] = delayed(x, t, pre);
        const std::pair<int, float> combs[] = {
            {4412, 0.175f}, {440, 0.125f}, {2200, 0.175f}, {8888, 0.05f}};
        for (const auto& [length, g] : combs) {
            std::vector<float> c(n);
            for (int t = 0; t < n; ++t) s[t] += c[t] = g * (p[t] + delayed(c, t, length));
        }
        std::vector<float> u = s;
        for (const auto& [length, g] :
             {std::pair{208, 0.75f}, {156, 0.75f}, {560, 0.625f}, {408, 0.625f}})
            u = allpass(u, length, g).second;
        const std::vector<float> t1 = allpass(u, 996, -0.7f).second,
                                 t3 = allpass(u, 1344, -0.5f).second;
        const auto tap = [&](const std::vector<float>& written, int t, int k) {
            return t - k + 4 >= 0 ? written[t - k + 4] : 0.0f;
        };
        double energy = 0.0;
        for (int t = 0; t < n; ++t) {
            const float left = (tap(t3, t, 394) + tap(t3, t, 4407) - tap(t1, t, 2949)) * 0.8f;
            const float right = (tap(t1, t, 523) + tap(t1, t, 5374) - tap(t3, t, 3128)) * 0.8f;
            ASSERT_NEAR(y.left[t], left, 1e-5f) << "time " << time << " sample " << t;
            ASSERT_NEAR(y.right[t], right, 1e-5f) << "time " << time << " sample " << t;
            energy += std::fabs(left) + std::fabs(right);
        }
        EXPECT_GT(energy, 1.0);
    }
}
