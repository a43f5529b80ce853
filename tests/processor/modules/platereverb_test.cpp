#include "effecttest.h"
#include "processor/modules/platereverb.h"

using S = PlateReverbState;

// Parameters: in gain 1, brightness 1, decay, time; diffusion, damping and feedback 0.
TEST(PlateReverb, PreDelayLengths) { // trunc(time^2 x 131072), down to a multiple of 4, at least 4
    for (auto [time, length] : {std::pair{1.0f, 131072}, {0.5f, 32768}, {0.01f, 12}, {0.0f, 4}}) {
        Fx<S> r({1, 0, 1, 0, 0.5f, 0, time});
        r.Run(Impulse(32));
        EXPECT_EQ(r.s->ring[S::kP].length, length) << time;
    }
}

// Decay 0: nothing reaches the second pair of either tank half, yet the other taps sound.
TEST(PlateReverb, DecayZeroRemovesTheRecirculation) {
    Fx<S> r({1, 0, 1, 0, 0, 0, 0});
    EXPECT_GT(Peak(r.Run(Impulse(32 * 1000))), 1e-3f);
    for (int e : {S::kA2, S::kT2, S::kA4, S::kT4})
        EXPECT_EQ(std::ranges::count(r.s->ring[e].data, 0.0f), r.s->ring[e].data.size()) << e;
}

TEST(PlateReverb, InGainZeroSilencesTheWetSignal) {
    Fx<S> r({1, 0, 1, 0, 0.8f, 0, 0.1f});
    r.Run(Noise(32 * 500));
    const float start = r.s->wetLevel;
    r.knob[kReverbInGain] = 0.0f, r.Run(Noise(32 * 10));
    EXPECT_NEAR(r.s->wetLevel, start * std::pow(0.95f, 10.0f), 1e-5f); // 5 % per call
    r.Run(Noise(32 * 1500));
    EXPECT_EQ(Peak(r.Run(Noise(32 * 10))), 0.0f);
}
