// The contract every effect type shares: call results, untouched outputs on a
// refused call, independent instances, reset, and a clean decay into silence.
#include "effecttest.h"
#include "processor/modules/chorus.h"
#include "processor/modules/dualphaser.h"
#include "processor/modules/dubdelay.h"
#include "processor/modules/flanger.h"
#include "processor/modules/platereverb.h"
#include "processor/modules/stereodelay.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <span>
#include <vector>

using namespace Norvell::Vantor;
using namespace VantorTest;

namespace {

using Memory = std::vector<std::span<const float>>;

// Per type: a setting with audible feedback and a fully wet mix, and the
// delay memory to inspect.
template <typename State> struct Traits;

template <> struct Traits<StereoDelayState> {
    static void Configure(StereoDelayState& s) {
        s.params.values[kDelayTime1] = 0.3f;
        s.params.values[kDelayTime2] = 0.2f;
        s.params.values[kDelayFeedback1] = 0.5f;
        s.params.values[kDelayFeedback2] = 0.5f;
        s.params.values[kDelayDamping] = 0.5f;
        s.params.values[kDelayDryWet] = 1.0f;
    }
    static Memory Lines(const StereoDelayState& s) { return {s.line[0].buf, s.line[1].buf}; }
};

template <> struct Traits<DualPhaserState> {
    static void Configure(DualPhaserState& s) {
        s.params.values[kPhaserRate1] = 0.5f;
        s.params.values[kPhaserRate2] = 0.6f;
        s.params.values[kPhaserFeedback1] = 0.8f;
        s.params.values[kPhaserFeedback2] = 0.8f;
        s.params.values[kPhaserDepth1] = 0.5f;
        s.params.values[kPhaserDepth2] = 0.5f;
        s.params.values[kPhaserType2] = 1.0f;
        s.params.values[kPhaserDryWet] = 1.0f;
    }
    static Memory Lines(const DualPhaserState& s) {
        return {s.section[0].stage, s.section[1].stage};
    }
};

template <> struct Traits<DubDelayState> {
    static void Configure(DubDelayState& s) {
        s.params.values[kDubDelayTime] = 0.05f;
        s.params.values[kDubDelayFbTone] = 0.7f;
        s.params.values[kDubDelayFeedback] = 0.7f;
        s.params.values[kDubDelayLfoDepth] = 0.5f;
        s.params.values[kDubDelayLfoRate] = 0.5f;
        s.params.values[kDubDelayDryWet] = 1.0f;
    }
    static Memory Lines(const DubDelayState& s) { return {s.ch[0].buf, s.ch[1].buf}; }
};

template <> struct Traits<FlangerState> {
    static void Configure(FlangerState& s) {
        s.params.values[kFlangerRate] = 0.5f;
        s.params.values[kFlangerDepth] = 0.5f;
        s.params.values[kFlangerFeedback] = 1.0f;
        s.params.values[kFlangerDelay] = 0.5f;
        s.params.values[kFlangerDryWet] = 1.0f;
    }
    static Memory Lines(const FlangerState& s) { return {s.bufL, s.bufR}; }
};

template <> struct Traits<ChorusState> {
    static void Configure(ChorusState& s) {
        s.params.values[kChorusType] = 1.0f;
        s.params.values[kChorusRate] = 0.5f;
        s.params.values[kChorusAmount] = 0.5f;
        s.params.values[kChorusDelay] = 0.5f;
        s.params.values[kChorusStereoWidth] = 0.5f;
        s.params.values[kChorusStereoRate] = 0.5f;
        s.params.values[kChorusDryWet] = 1.0f;
    }
    static Memory Lines(const ChorusState& s) { return {s.line[0].store, s.line[1].store}; }
};

template <> struct Traits<PlateReverbState> {
    static void Configure(PlateReverbState& s) {
        s.params.values[kReverbInGain] = 1.0f;
        s.params.values[kReverbDamping] = 0.3f;
        s.params.values[kReverbBrightness] = 0.8f;
        s.params.values[kReverbDiffusion] = 0.6f;
        s.params.values[kReverbDecay] = 0.9f;
        s.params.values[kReverbFeedback] = 0.6f;
        s.params.values[kReverbTime] = 0.1f;
        s.params.values[kReverbDryWet] = 1.0f;
    }
    static Memory Lines(const PlateReverbState& s) {
        Memory m;
        for (const ReverbRing& r : s.ring) m.emplace_back(r.data);
        return m;
    }
};

template <typename State> std::unique_ptr<State> MakeEffect() {
    auto s = std::make_unique<State>();
    Traits<State>::Configure(*s);
    Init(*s);
    return s;
}

template <typename State> class EffectContract : public ::testing::Test {};
using EffectTypes = ::testing::Types<StereoDelayState, DualPhaserState, DubDelayState, FlangerState,
                                     ChorusState, PlateReverbState>;
TYPED_TEST_SUITE(EffectContract, EffectTypes);

constexpr float kSentinel = 7.0f;

} // namespace

TYPED_TEST(EffectContract, RefusedCallsAnswerTheirResultAndLeaveTheOutputs) {
    auto s = MakeEffect<TypeParam>();
    Signal input = Noise(32);
    Signal output = Constant(32, kSentinel, kSentinel);
    float* in[2] = {input.left.data(), input.right.data()};
    float* out[2] = {output.left.data(), output.right.data()};

    EXPECT_EQ(Process(*s, in, 2, out, 2, Context(44100.0f, 120.0f, 0)), kProcessUnusable);
    EXPECT_EQ(Process(*s, in, 2, out, 2, Context(0.0f)), kProcessUnusable);
    EXPECT_EQ(Process(*s, in, 2, out, 2, Context(44100.0f, 0.0f)), kProcessUnusable);
    TypeParam notReady; // never initialised
    EXPECT_EQ(Process(notReady, in, 2, out, 2, Context()), kProcessUnusable);

    float* halfIn[2] = {input.left.data(), nullptr};
    float* halfOut[2] = {nullptr, output.right.data()};
    EXPECT_EQ(Process(*s, nullptr, 2, out, 2, Context()), kProcessMissing);
    EXPECT_EQ(Process(*s, in, 2, nullptr, 2, Context()), kProcessMissing);
    EXPECT_EQ(Process(*s, halfIn, 2, out, 2, Context()), kProcessMissing);
    EXPECT_EQ(Process(*s, in, 2, halfOut, 2, Context()), kProcessMissing);

    for (size_t i = 0; i < 32; ++i) {
        ASSERT_EQ(output.left[i], kSentinel);
        ASSERT_EQ(output.right[i], kSentinel);
    }
    EXPECT_EQ(Process(*s, in, 2, out, 2, Context()), kProcessOk);
}

// Slot 1 sees slot 0's output, block by block, as in the render; each must
// behave exactly like an instance running alone.
TYPED_TEST(EffectContract, TwoInstancesKeepTheirOwnMemory) {
    auto slot0 = MakeEffect<TypeParam>();
    auto slot1 = MakeEffect<TypeParam>();
    const Signal input = Noise(32 * 200, 0.5f, 7);
    Signal out0 = Silence(input.size());
    Signal out1 = Silence(input.size());
    for (size_t at = 0; at < input.size(); at += 32) {
        float* in[2] = {const_cast<float*>(&input.left[at]), const_cast<float*>(&input.right[at])};
        float* o0[2] = {&out0.left[at], &out0.right[at]};
        float* o1[2] = {&out1.left[at], &out1.right[at]};
        Process(*slot0, in, 2, o0, 2, Context());
        Process(*slot1, o0, 2, o1, 2, Context());
    }
    auto alone0 = MakeEffect<TypeParam>();
    auto alone1 = MakeEffect<TypeParam>();
    const Signal ref0 = Run(*alone0, input);
    const Signal ref1 = Run(*alone1, ref0);
    EXPECT_EQ(out0.left, ref0.left);
    EXPECT_EQ(out0.right, ref0.right);
    EXPECT_EQ(out1.left, ref1.left);
    EXPECT_EQ(out1.right, ref1.right);
}

TYPED_TEST(EffectContract, ResetForgetsTheSound) {
    auto s = MakeEffect<TypeParam>();
    Run(*s, Noise(32 * 100));
    Reset(*s);
    for (std::span<const float> line : Traits<TypeParam>::Lines(*s))
        for (float v : line) ASSERT_EQ(v, 0.0f);
    // What follows is silence (up to the stereo delay's 1e-25 offset).
    EXPECT_LT(Peak(RunSilence(*s, 32 * 2000)), 1e-20f);
}

TYPED_TEST(EffectContract, ImpulseDiesAwayCleanly) {
    auto s = MakeEffect<TypeParam>();
    const size_t second = 44096; // whole blocks
    Signal out = Run(*s, Impulse(second, 1.0f, 64));
    const float firstPeak = Peak(out);
    ASSERT_GT(firstPeak, 0.01f); // the effect made itself heard
    size_t subnormalOut = 0;
    Signal tail;
    for (int k = 0; k < 12; ++k) {
        tail = RunSilence(*s, second);
        for (size_t i = 0; i < tail.size(); ++i) {
            ASSERT_TRUE(std::isfinite(tail.left[i]) && std::isfinite(tail.right[i]));
        }
        subnormalOut += CountSubnormals(tail.left) + CountSubnormals(tail.right);
    }
    EXPECT_EQ(subnormalOut, 0u);
    EXPECT_LT(Peak(tail), 1e-6f * firstPeak);
    for (std::span<const float> line : Traits<TypeParam>::Lines(*s))
        EXPECT_EQ(CountSubnormals(line), 0u);
}
