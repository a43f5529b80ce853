// What every effect type shares: call results, independent instances, reset,
// the dry signal at dry/wet 0, and a clean decay into silence.
#include "effecttest.h"
#include "processor/modules/chorus.h"
#include "processor/modules/dualphaser.h"
#include "processor/modules/dubdelay.h"
#include "processor/modules/flanger.h"
#include "processor/modules/platereverb.h"
#include "processor/modules/stereodelay.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <span>
#include <vector>

using namespace Norvell::Vantor;
using namespace VantorTest;

namespace {

using Memory = std::vector<std::span<const float>>;

// Per type: parameter values in binding order with audible feedback (the
// last, dry/wet, is set by each test) and the memory that must hold no
// subnormal numbers.
template <typename State> struct Traits;
template <> struct Traits<StereoDelayState> {
    static constexpr float kValues[] = {0.3f, 0, 0.5f, 0.2f, 0, 0, 0.5f, 0, 0, 0, 0, 1};
    static Memory Lines(const StereoDelayState& s) { return {s.line[0].buf, s.line[1].buf}; }
};
template <> struct Traits<DualPhaserState> {
    static constexpr float kValues[] = {0.5f, 0, 0.8f, 0.5f, 0, 0.6f, 0, 0.8f, 0, 1, 0, 0, 0, 1};
    static Memory Lines(const DualPhaserState& s) {
        return {s.section[0].stage, s.section[1].stage};
    }
};
template <> struct Traits<DubDelayState> {
    static constexpr float kValues[] = {0.05f, 0.7f, 0.7f, 0.5f, 0, 1};
    static Memory Lines(const DubDelayState& s) { return {s.ch[0].buf, s.ch[1].buf}; }
};
template <> struct Traits<FlangerState> {
    static constexpr float kValues[] = {0.5f, 0.5f, 1.0f, 0.5f, 1};
    static Memory Lines(const FlangerState& s) { return {s.bufL, s.bufR}; }
};
template <> struct Traits<ChorusState> {
    static constexpr float kValues[] = {1.0f, 0.5f, 0.5f, 0.5f, 0.5f, 0, 1};
    static Memory Lines(const ChorusState& s) { return {s.line[0].store, s.line[1].store}; }
};
template <> struct Traits<PlateReverbState> {
    static constexpr float kValues[] = {1.0f, 0.3f, 0.8f, 0.6f, 0.9f, 0.6f, 0.1f, 1};
    static Memory Lines(const PlateReverbState& s) {
        Memory m;
        for (const ReverbRing& r : s.ring) m.emplace_back(r.data);
        return m;
    }
};

template <typename State> std::unique_ptr<State> MakeEffect(float dryWet = 1.0f) {
    auto s = std::make_unique<State>();
    static_assert(sizeof(Traits<State>::kValues) == sizeof(s->params.values));
    std::copy(std::begin(Traits<State>::kValues), std::end(Traits<State>::kValues),
              s->params.values);
    s->params.values[std::size(s->params.values) - 1] = dryWet;
    Init(*s);
    return s;
}

size_t CountSubnormals(std::span<const float> values) {
    size_t n = 0;
    for (float v : values) n += std::fpclassify(v) == FP_SUBNORMAL ? 1 : 0;
    return n;
}

template <typename State> class EffectContract : public ::testing::Test {};
using EffectTypes = ::testing::Types<StereoDelayState, DualPhaserState, DubDelayState, FlangerState,
                                     ChorusState, PlateReverbState>;
TYPED_TEST_SUITE(EffectContract, EffectTypes);

} // namespace

TYPED_TEST(EffectContract, RefusedCallsAnswerTheirResultAndLeaveTheOutputs) {
    auto s = MakeEffect<TypeParam>();
    Signal input = Noise(32);
    Signal output = Constant(32, 7.0f);
    float* in[2] = {input.left.data(), input.right.data()};
    float* out[2] = {output.left.data(), output.right.data()};
    float* halfIn[2] = {input.left.data(), nullptr};
    float* halfOut[2] = {nullptr, output.right.data()};
    TypeParam notReady;

    EXPECT_EQ(Process(*s, in, 2, out, 2, Context(44100.0f, 120.0f, 0)), kProcessUnusable);
    EXPECT_EQ(Process(*s, in, 2, out, 2, Context(0.0f)), kProcessUnusable);
    EXPECT_EQ(Process(*s, in, 2, out, 2, Context(44100.0f, 0.0f)), kProcessUnusable);
    EXPECT_EQ(Process(notReady, in, 2, out, 2, Context()), kProcessUnusable);
    EXPECT_EQ(Process(*s, nullptr, 2, out, 2, Context()), kProcessMissing);
    EXPECT_EQ(Process(*s, in, 2, nullptr, 2, Context()), kProcessMissing);
    EXPECT_EQ(Process(*s, halfIn, 2, out, 2, Context()), kProcessMissing);
    EXPECT_EQ(Process(*s, in, 2, halfOut, 2, Context()), kProcessMissing);
    EXPECT_EQ(output.left, Constant(32, 7.0f).left);
    EXPECT_EQ(output.right, Constant(32, 7.0f).right);
    EXPECT_EQ(Process(*s, in, 2, out, 2, Context()), kProcessOk);
}

// Slot 1 takes slot 0's output block by block, as in the render; each
// instance must behave exactly as one running alone.
TYPED_TEST(EffectContract, TwoInstancesKeepTheirOwnMemory) {
    auto slot0 = MakeEffect<TypeParam>();
    auto slot1 = MakeEffect<TypeParam>();
    const Signal input = Noise(32 * 200, 0.5f, 7);
    Signal out0 = Constant(input.size(), 0.0f);
    Signal out1 = out0;
    for (size_t at = 0; at < input.size(); at += 32) {
        float* in[2] = {const_cast<float*>(&input.left[at]), const_cast<float*>(&input.right[at])};
        float* o0[2] = {&out0.left[at], &out0.right[at]};
        float* o1[2] = {&out1.left[at], &out1.right[at]};
        Process(*slot0, in, 2, o0, 2, Context());
        Process(*slot1, o0, 2, o1, 2, Context());
    }
    const Signal ref0 = RunEffect(*MakeEffect<TypeParam>(), input);
    const Signal ref1 = RunEffect(*MakeEffect<TypeParam>(), ref0);
    EXPECT_EQ(out0.left, ref0.left);
    EXPECT_EQ(out1.left, ref1.left);
    EXPECT_EQ(out1.right, ref1.right);
}

TYPED_TEST(EffectContract, DryWetZeroGivesTheDrySignal) {
    auto s = MakeEffect<TypeParam>(0.0f);
    const Signal in = Noise(32 * 300);
    const Signal out = RunEffect(*s, in);
    EXPECT_EQ(out.left, in.left);
    EXPECT_EQ(out.right, in.right);
}

TYPED_TEST(EffectContract, ResetForgetsTheSound) {
    auto s = MakeEffect<TypeParam>();
    RunEffect(*s, Noise(32 * 100));
    Reset(*s);
    for (std::span<const float> line : Traits<TypeParam>::Lines(*s))
        for (float v : line) ASSERT_EQ(v, 0.0f);
    // Silence follows (up to the stereo delay's 1e-25 offset).
    EXPECT_LT(Peak(RunSilence(*s, 32 * 2000)), 1e-20f);
}

TYPED_TEST(EffectContract, ImpulseDiesAwayCleanly) {
    auto s = MakeEffect<TypeParam>();
    const size_t second = 32 * 1378;
    const float first = Peak(RunEffect(*s, Impulse(second)));
    ASSERT_GT(first, 0.01f); // the effect made itself heard
    Signal tail;
    for (int k = 0; k < 12; ++k) {
        tail = RunSilence(*s, second);
        for (size_t i = 0; i < tail.size(); ++i)
            ASSERT_TRUE(std::isfinite(tail.left[i]) && std::isfinite(tail.right[i]));
        ASSERT_EQ(CountSubnormals(tail.left) + CountSubnormals(tail.right), 0u);
    }
    EXPECT_LT(Peak(tail), 1e-6f * first);
    for (std::span<const float> line : Traits<TypeParam>::Lines(*s))
        EXPECT_EQ(CountSubnormals(line), 0u);
}
