#include "effecttest.h"
#include "processor/modules/chorus.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>

using namespace Norvell::Vantor;
using namespace VantorTest;

namespace {

std::unique_ptr<ChorusState> MakeChorus(float type, float width) {
    auto s = std::make_unique<ChorusState>();
    const float values[kChorusParamCount] = {type, 0.7f, 0.0f, 0.4f, width, 0.5f, 1.0f};
    std::copy(values, values + kChorusParamCount, s->params.values);
    Init(*s);
    return s;
}

} // namespace

TEST(Chorus, VoiceCountFromType) {
    // 2 x type: 0 gives one voice, exactly 1 two, anything else three. With
    // amount 0 and width 0 every voice reads the same delay: DC adds up.
    for (auto [type, voices] : {std::pair{0.0f, 1}, {0.5f, 2}, {0.3f, 3}, {1.0f, 3}}) {
        auto s = MakeChorus(type, 0.0f);
        const Signal out = RunEffect(*s, Constant(32 * 1500, 1.0f));
        EXPECT_NEAR(out.left.back(), static_cast<float>(voices), 1e-4f) << type;
    }
}

TEST(Chorus, DelayFollowsTheDelayLaw) {
    // delay x 0.025 s, read through the samples trunc(D), +1 and +2 behind the
    // newest: a whole D returns the sample D + 1 behind. The single-precision
    // followers stop a few 1e-7 s short, so the neighbours get a little.
    for (float rate : {44100.0f, 48000.0f}) {
        auto s = MakeChorus(0.0f, 0.0f);
        RunSilence(*s, 32 * 1500, Context(rate));
        const std::vector<float> out = RunEffect(*s, Impulse(2048), Context(rate)).left;
        const size_t at = static_cast<size_t>(std::lround(0.4 * 0.025 * rate)) + 1;
        EXPECT_EQ(std::max_element(out.begin(), out.end()) - out.begin(), at) << rate;
        EXPECT_NEAR(out[at - 2] + out[at - 1] + out[at], 1.0f, 1e-4f);
    }
}
