#include "effecttest.h"
#include "processor/modules/platereverb.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>

using namespace Norvell::Vantor;
using namespace VantorTest;

namespace {

using S = PlateReverbState;

struct Reverb {
    std::unique_ptr<S> s = std::make_unique<S>();
    Knobs<kReverbParamCount> knobs{s->params};
    Reverb(float decay, float time) {
        const float values[kReverbParamCount] = {1.0f, 0.0f, 1.0f, 0.0f, decay, 0.0f, time, 1.0f};
        std::copy(values, values + kReverbParamCount, knobs.values);
        Init(*s);
    }
};

// trunc(time^2 x 131072), down to a multiple of 4, at least 4.
int32_t PreDelay(double time) {
    return std::max(4, static_cast<int32_t>(time * time * 131072.0) / 4 * 4);
}

} // namespace

TEST(PlateReverb, PreDelayLengths) {
    ASSERT_EQ(PreDelay(1.0), 131072);
    ASSERT_EQ(PreDelay(0.5), 32768);
    size_t onset[2] = {};
    for (float time : {0.3f, 0.01f, 0.0f, 1.0f, 0.5f, 0.25f}) {
        Reverb r(0.5f, time);
        const std::vector<float> out = RunEffect(*r.s, Impulse(32 * 1500)).left;
        EXPECT_EQ(r.s->ring[S::kP].length, PreDelay(time)) << time;
        // With diffusion and feedback 0 the pre-delay is a plain delay: the
        // first wet sample moves with its length.
        const size_t first =
            std::find_if(out.begin() + 1, out.end(), [](float v) { return v; }) - out.begin();
        if (time == 0.5f) onset[1] = first;
        if (time == 0.25f) onset[0] = first;
    }
    EXPECT_EQ(onset[1] - onset[0], static_cast<size_t>(PreDelay(0.5) - PreDelay(0.25)));
    // Shrinking wraps the write position into the new length.
    Reverb r(0.5f, 1.0f);
    RunEffect(*r.s, Noise(32 * 3000));
    r.knobs[kReverbTime] = 0.1f;
    RunEffect(*r.s, Noise(32));
    EXPECT_LT(r.s->ring[S::kP].pos, r.s->ring[S::kP].length);
}

TEST(PlateReverb, DecayZeroRemovesTheRecirculation) {
    // Nothing reaches the second pair of either tank half; the wet signal is
    // the diffused input seen at the other taps.
    Reverb r(0.0f, 0.0f);
    EXPECT_GT(Peak(RunEffect(*r.s, Impulse(32 * 1000))), 1e-3f);
    for (int e : {S::kA2, S::kT2, S::kA4, S::kT4})
        EXPECT_EQ(*std::max_element(r.s->ring[e].data.begin(), r.s->ring[e].data.end()), 0.0f);
}

TEST(PlateReverb, InGainZeroSilencesTheWetSignal) {
    Reverb r(0.8f, 0.1f);
    RunEffect(*r.s, Noise(32 * 500));
    r.knobs[kReverbInGain] = 0.0f;
    const float start = r.s->wetLevel;
    RunEffect(*r.s, Noise(32 * 10));
    EXPECT_NEAR(r.s->wetLevel, start * std::pow(0.95f, 10.0f), 1e-5f); // 5 % per call
    RunEffect(*r.s, Noise(32 * 1500));
    EXPECT_EQ(Peak(RunEffect(*r.s, Noise(32 * 10))), 0.0f);
}
