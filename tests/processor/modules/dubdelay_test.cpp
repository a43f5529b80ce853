#include "effecttest.h"
#include "processor/modules/dubdelay.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

using namespace Norvell::Vantor;
using namespace VantorTest;

namespace {

struct Dub {
    std::unique_ptr<DubDelayState> s = std::make_unique<DubDelayState>();
    Knobs<kDubDelayParamCount> knobs{s->params};
    Dub(float time, float feedback) {
        knobs[kDubDelayTime] = time;
        knobs[kDubDelayFeedback] = feedback;
        knobs[kDubDelayFbTone] = 0.5f;
        knobs[kDubDelayDryWet] = 1.0f;
        Init(*s);
    }
};

} // namespace

TEST(DubDelay, EchoComesAtTheDelayLaw) {
    for (float rate : {44100.0f, 48000.0f}) {
        Dub d(0.5f, 0.0f);
        RunSilence(*d.s, 32 * 4000, Context(rate)); // the read position ramps in
        const Signal out = RunEffect(*d.s, Impulse(32 * 800), Context(rate));
        // The echo is split over two samples around the fractional delay.
        double weight = 0.0;
        double moment = 0.0;
        for (size_t i = 0; i < out.size(); ++i) {
            weight += out.left[i];
            moment += out.left[i] * static_cast<double>(i);
        }
        EXPECT_NEAR(weight, 1.0, 1e-4);
        // The single-precision ramp stops once 1 % of the gap is below half a
        // unit in the last place: a fifth of a sample short at these lengths.
        EXPECT_NEAR(moment / weight, rate * (0.988f * 0.5f + 0.012f), 0.25);
    }
}

TEST(DubDelay, LimiterReleaseDependsOnFeedback) {
    // A peak of 2 sets the envelope to 2 and is written limited to 1; the
    // envelope then falls by the release factor for the rest of the block.
    for (auto [feedback, release] : {std::pair{0.6f, 0.9997f}, std::pair{0.5f, 0.8f}}) {
        Dub d(1.0f, feedback);
        RunEffect(*d.s, Impulse(32, 2.0f));
        EXPECT_NEAR(d.s->ch[0].env, 2.0f * std::pow(release, 31.0f), 1e-5f) << feedback;
        EXPECT_NEAR(d.s->ch[0].buf[static_cast<size_t>(d.s->w + 31)], 1.0f, 1e-6f);
    }
}

TEST(DubDelay, ToneStateSnapsToZeroWithTheEnvelope) {
    Dub d(1.0f, 0.6f); // slow release: the envelope is far from 0 at the snap
    RunEffect(*d.s, Impulse(32));
    for (int block = 0; block < 200; ++block) {
        const float before = d.s->ch[0].lp;
        RunSilence(*d.s, 32);
        if (d.s->ch[0].lp == 0.0f) {
            EXPECT_GE(std::fabs(before), 1e-10f);
            EXPECT_EQ(d.s->ch[0].env, 0.0f);
            return;
        }
        ASSERT_GE(std::fabs(d.s->ch[0].lp), 1e-10f);
    }
    FAIL() << "the tone filter state never snapped";
}

TEST(DubDelay, ModulationUpdatesOncePerBlock) {
    // One LFO step of (9.5 rate + 0.5) x 628.31854 / sampleRate per call: at
    // 32-sample blocks (9.5 rate + 0.5) x 100 / 32 Hz, 1.5625 to 31.25 Hz.
    for (float lfoRate : {0.0f, 1.0f}) {
        Dub d(0.5f, 0.0f);
        d.knobs[kDubDelayLfoRate] = lfoRate;
        const int calls = 44100 * 4 / 32;
        int wraps = 0;
        for (int k = 0; k < calls; ++k) {
            const float before = d.s->lfoPhase;
            RunSilence(*d.s, 32);
            wraps += d.s->lfoPhase < before ? 1 : 0;
        }
        const double hz = (9.5 * lfoRate + 0.5) * 100.0 / 32.0;
        EXPECT_NEAR(wraps, std::floor(hz * calls * 32 / 44100.0), 1.0) << lfoRate;
    }
}
