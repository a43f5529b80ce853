// What every effect type shares: call results, own memory, dry/wet 0, reset and a clean decay.
#include "effecttest.h"
#include "processor/modules/chorus.h"
#include "processor/modules/dualphaser.h"
#include "processor/modules/dubdelay.h"
#include "processor/modules/flanger.h"
#include "processor/modules/platereverb.h"
#include "processor/modules/stereodelay.h"
#include <span>

using Mem = std::vector<std::span<const float>>;

// Per type: values with audible feedback, and the memory that must hold no subnormal numbers.
struct Per {
    using V = std::vector<float>;
    static V Of(StereoDelayState*) { return {.3f, 0, .5f, .2f, 0, 0, .5f}; }
    static V Of(DualPhaserState*) { return {.5f, 0, .8f, .5f, 0, .6f, 0, .8f, 0, 1}; }
    static V Of(DubDelayState*) { return {.05f, .7f, .7f, .5f}; }
    static V Of(FlangerState*) { return {.5f, .5f, 1, .5f}; }
    static V Of(ChorusState*) { return {1, .5f, .5f, .5f, .5f}; }
    static V Of(PlateReverbState*) { return {1, .3f, .8f, .6f, .9f, .6f, .1f}; }
    static Mem Lines(const StereoDelayState& s) {
        return {s.line[0].buf.Samples(), s.line[1].buf.Samples()};
    }
    static Mem Lines(const DualPhaserState& s) { return {s.section[0].stage, s.section[1].stage}; }
    static Mem Lines(const DubDelayState& s) {
        return {s.ch[0].buf.Samples(), s.ch[1].buf.Samples()};
    }
    static Mem Lines(const FlangerState& s) { return {s.bufL.Samples(), s.bufR.Samples()}; }
    static Mem Lines(const ChorusState& s) {
        return {s.line[0].store.Samples(), s.line[1].store.Samples()};
    }
    static Mem Lines(const PlateReverbState& s) {
        Mem m;
        for (const ReverbRing& r : s.ring) m.emplace_back(r.line.Samples());
        return m;
    }
};
size_t Subnormals(const Mem& memory) {
    size_t n = 0;
    for (std::span<const float> x : memory)
        n += std::ranges::count_if(x, [](float v) { return std::fpclassify(v) == FP_SUBNORMAL; });
    return n;
}

template <typename State> struct EffectContract : ::testing::Test {
    static std::vector<float> V() { return Per::Of(static_cast<State*>(nullptr)); }
    Fx<State> f{V()};
};
using EffectTypes = ::testing::Types<StereoDelayState, DualPhaserState, DubDelayState, FlangerState,
                                     ChorusState, PlateReverbState>;
TYPED_TEST_SUITE(EffectContract, EffectTypes);

TYPED_TEST(EffectContract, RefusedCallsAnswerTheirResultAndLeaveTheOutputs) {
    Signal x = Noise(32), y = Constant(32, 7.0f);
    float *in[2] = {x.left.data(), x.right.data()}, *halfIn[2] = {in[0], nullptr}, **none = {};
    float *out[2] = {y.left.data(), y.right.data()}, *halfOut[2] = {nullptr, out[1]};
    TypeParam& s = *this->f.s;
    TypeParam notReady;
    for (ProcessContext bad : {ProcessContext{}, Context(0.0f), Context(44100.0f, 0.0f)})
        EXPECT_EQ(Process(s, in, 2, out, 2, bad), kProcessUnusable); // no frames, rate, tempo
    EXPECT_EQ(Process(notReady, in, 2, out, 2, Context()), kProcessUnusable);
    for (auto [i, o] : {std::pair{none, out}, {in, none}, {halfIn, out}, {in, halfOut}})
        EXPECT_EQ(Process(s, i, 2, o, 2, Context()), kProcessMissing);
    EXPECT_EQ(y, Constant(32, 7.0f));
    EXPECT_EQ(Process(s, in, 2, out, 2, Context()), kProcessOk);
}

// Slot 1 takes slot 0's output block by block, as in the render; each runs as if alone.
TYPED_TEST(EffectContract, TwoInstancesKeepTheirOwnMemory) {
    Fx<TypeParam> slot1(this->V());
    Signal x = Noise(32 * 200), a = Constant(32 * 200), b = a;
    for (size_t at = 0; at < x.left.size(); at += 32) {
        float *in[2] = {&x.left[at], &x.right[at]}, *o0[2] = {&a.left[at], &a.right[at]};
        float* o1[2] = {&b.left[at], &b.right[at]};
        Process(*this->f.s, in, 2, o0, 2, Context());
        Process(*slot1.s, o0, 2, o1, 2, Context());
    }
    const Signal ref0 = Fx<TypeParam>(this->V()).Run(x);
    EXPECT_EQ(a, ref0);
    EXPECT_EQ(b, Fx<TypeParam>(this->V()).Run(ref0));
}

TYPED_TEST(EffectContract, DryWetZeroGivesTheDrySignal) {
    const Signal in = Noise(32 * 300);
    EXPECT_EQ(Fx<TypeParam>(this->V(), 0.0f).Run(in), in);
}

// Silence after a reset (but the delay's 1e-25 offset); an impulse then dies away cleanly.
TYPED_TEST(EffectContract, ResetThenImpulseDiesAwayCleanly) {
    Fx<TypeParam>& f = this->f;
    f.Run(Noise(32 * 100));
    Reset(*f.s);
    EXPECT_LT(Peak(f.Run(Constant(32 * 2000))), 1e-20f);
    const float first = Peak(f.Run(Impulse(32 * 1378)));
    ASSERT_GT(first, 0.01f); // the effect made itself heard
    const Signal decay = f.Run(Constant(32 * 1378 * 11)), tail = f.Run(Constant(32 * 1378));
    EXPECT_TRUE(std::isfinite(Peak(decay)));
    EXPECT_EQ(Subnormals({decay.left, decay.right, tail.left, tail.right}), 0u);
    EXPECT_LT(Peak(tail), 1e-6f * first);
    EXPECT_EQ(Subnormals(Per::Lines(*f.s)), 0u);
}

// All notes off clears what initialisation clears (the delay memories and
// filter states) and nothing else: after silence, when those hold nothing, a
// reset changes nothing, so the next sound comes in at the running wet level.
template <typename State> void ResetAfterSilenceChangesNothing() {
    const std::vector<float> v = Per::Of(static_cast<State*>(nullptr));
    Fx<State> kept(v), reset(v);
    kept.Run(Constant(32 * 100));
    reset.Run(Constant(32 * 100));
    Reset(*reset.s);
    const Signal x = Noise(32 * 50);
    EXPECT_EQ(reset.Run(x), kept.Run(x));
}
TEST(EffectReset, KeepsTheRunningLevelsAndPhases) {
    ResetAfterSilenceChangesNothing<ChorusState>();
    ResetAfterSilenceChangesNothing<PlateReverbState>();
}

// A reset forgets the input: after loud noise the effect then sounds exactly as after silence
// and the same reset (levels, phases and glides ran on the same way in both).
TYPED_TEST(EffectContract, ResetForgetsEverythingTheInputLeft) {
    Fx<TypeParam> quiet(this->V());
    this->f.Run(Noise(32 * 300, 0.9f));
    quiet.Run(Constant(32 * 300));
    Reset(*this->f.s);
    Reset(*quiet.s);
    const Signal x = Noise(32 * 300);
    EXPECT_EQ(this->f.Run(x), quiet.Run(x));
}
