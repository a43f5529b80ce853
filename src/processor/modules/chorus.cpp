#include "processor/modules/chorus.h"

#include "dsp/breakpointtable.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace Norvell::Vantor {

namespace {

constexpr int32_t kRing = ChorusLine::kRing;
constexpr size_t kSweepSize = 8192;
constexpr float kVoiceOmega[3] = {6.2831855f, 4.442883f, 2.2214415f};

// Exponential sweep curve, entry i = 4^(i * 2/8191 - 1): 0.25 to 4.0.
const dsp::BreakpointTable<kSweepSize>& SweepTable() {
    static const auto table = [] {
        std::array<float, kSweepSize> v{};
        for (size_t i = 0; i < kSweepSize; ++i)
            v[i] = std::pow(4.0f, static_cast<float>(i) * 2.0f / 8191.0f - 1.0f);
        return dsp::BreakpointTable<kSweepSize>::FromValues(v);
    }();
    return table;
}

inline float WrapPhase(float phase) {
    return phase - kTwoPi * std::trunc(phase / kTwoPi);
}

// Follows target by the smoothing fraction; a value settling on 0 ends at 0
// instead of creeping through subnormal numbers.
inline void Follow(float& value, float target, float smooth) {
    value = FlushTiny(value + (target - value) * smooth);
}

void Derive(ChorusState& s, float sampleRate) {
    const auto& p = s.params;
    s.voices = ChorusVoiceCount(p[kChorusType]);
    s.stereoRate = p[kChorusStereoRate] * 1.5f;
    s.sweepTarget = p[kChorusAmount] * 0.4f;
    s.delayTarget = p[kChorusDelay] * 0.025f;
    s.smooth = 1.0f - std::exp(-1.0f / (sampleRate * 0.02f));
}

} // namespace

int32_t ChorusVoiceCount(float type) {
    const float v = 2.0f * type;
    if (v == 0.0f) return 1;
    if (v == 1.0f) return 2;
    return 3;
}

float ChorusLine::Read(float d) const {
    // Largest whole delay that keeps trunc(d) + 2 inside the ring.
    const int32_t n = StepIndex(d, 1.0f, kRing - 3);
    const float t = d - static_cast<float>(n);
    const float* y = store.Data() + store.Position() + n; // y[k]: k + n samples behind the newest
    return y[0] * (t * t - t) * 0.5f + y[1] * (1.0f - t * t) + y[2] * (t + t * t) * 0.5f;
}

void Init(ChorusState& state) {
    SweepTable();
    for (ChorusLine& l : state.line) l.store.Allocate(kRing, true);
    Reset(state);
    state.ready = true;
}

void Reset(ChorusState& state) {
    for (ChorusLine& l : state.line) l.store.Clear();
    // The smoothed settings and the LFO phases carry on, so the next sound
    // comes in at the current mix and delay.
}

int32_t Process(ChorusState& state, Inputs in, uint64_t, Outputs out, uint64_t,
                const ProcessContext& ctx) {
    ChorusState& s = state;
    const int32_t status = s.Begin(s, in, out, ctx, Derive);
    if (status != kProcessOk) return status;

    const auto& p = s.params;
    const auto& table = SweepTable();
    const float sr = ctx.sampleRate;
    const float stereoStep = s.stereoRate * kTwoPi / sr;
    const float rate = p[kChorusRate];
    const float mixTarget = p[kChorusDryWet];
    const float widthTarget = p[kChorusStereoWidth];
    const float* xl = in[0];
    const float* xr = in[1];
    float* outL = out[0];
    float* outR = out[1];

    for (int32_t n = 0; n < ctx.frameCount; ++n) {
        Follow(s.mix, mixTarget, s.smooth);
        Follow(s.baseDelay, s.delayTarget, s.smooth);
        Follow(s.sweep, s.sweepTarget, s.smooth);
        Follow(s.width, widthTarget, s.smooth);

        s.stereoPhase = WrapPhase(s.stereoPhase + stereoStep);
        const float st = std::sin(s.stereoPhase);
        const float offL = (st + 1.0f) * s.width * 0.05f;
        const float offR = (1.0f - st) * s.width * 0.05f;

        s.line[0].Push(xl[n]);
        s.line[1].Push(xr[n]);

        float wetL = 0.0f;
        float wetR = 0.0f;
        for (int32_t k = 0; k < s.voices; ++k) {
            s.voicePhase[k] = WrapPhase(s.voicePhase[k] + rate * kVoiceOmega[k] / sr);
            const float m = std::sin(s.voicePhase[k]);
            const float e = table.AtIndex((m * s.sweep + 1.0f) * 4095.5f);
            wetL += s.line[0].Read((e * s.baseDelay + offL) * sr);
            wetR += s.line[1].Read((e * s.baseDelay + offR) * sr);
        }
        outL[n] = (1.0f - s.mix) * xl[n] + s.mix * wetL;
        outR[n] = (1.0f - s.mix) * xr[n] + s.mix * wetR;
    }
    return kProcessOk;
}

} // namespace Norvell::Vantor
