#include "processor/modules/platereverb.h"

#include <algorithm>
#include <cmath>

namespace Norvell::Vantor {

namespace {

using S = PlateReverbState;
constexpr int32_t kStorage = ReverbRing::kStorage;

struct ElementShape {
    int32_t length;
    float g;
};

// Lengths (multiples of 4) and coefficients; the pre-delay's are set per call.
constexpr ElementShape kShapes[S::kElementCount] = {
    {4, 0.0f},    {4412, 0.175f}, {440, 0.125f}, {2200, 0.175f}, {8888, 0.05f}, {208, 0.75f},
    {156, 0.75f}, {560, 0.625f},  {408, 0.625f}, {996, -0.7f},   {6596, 0.0f},  {2664, 0.7f},
    {5512, 0.0f}, {1344, -0.5f},  {6248, 0.0f},  {3936, 0.5f},   {4684, 0.0f}};

// Written values pass through +1e-25 and -1e-25, which flushes anything far
// below that size to zero.
inline float Settle(float v) {
    return (v + 1e-25f) - 1e-25f;
}

// All-pass: w = x - gRec d; write w; output d + gFwd w.
inline void AllPass(ReverbRing& r, const float* x, float* y, float gRec, float gFwd) {
    float* d = r.Oldest();
    for (int n = 0; n < 4; ++n) {
        const float w = Settle(x[n] - gRec * d[n]);
        const float old = d[n];
        d[n] = w;
        y[n] = old + gFwd * w;
    }
    r.Advance();
}

// Comb: y = g (x + d), written and output.
inline void Comb(ReverbRing& r, const float* x, float* y, float g) {
    float* d = r.Oldest();
    for (int n = 0; n < 4; ++n) {
        const float v = Settle(g * (x[n] + d[n]));
        d[n] = v;
        y[n] = v;
    }
    r.Advance();
}

// Plain delay: writes x, outputs the oldest group.
inline void Delay(ReverbRing& r, const float* x, float* y) {
    float* d = r.Oldest();
    for (int n = 0; n < 4; ++n) {
        const float w = Settle(x[n]); // x and y may be the same group
        y[n] = d[n];
        d[n] = w;
    }
    r.Advance();
}

inline float Cube(float x) {
    return x * x * x;
}

void SetPreDelayLength(dsp::DelayLine& p, int32_t length) {
    if (length == p.Length()) return;
    const bool grows = length > p.Length();
    const int32_t position = p.Position();
    p.SetLength(length);
    if (grows) p.Clear(); // a growing ring starts out silent over its whole extent
    p.SetPosition(position >= length ? position % length : position);
}

void Derive(PlateReverbState& s, float sampleRate) {
    const auto& p = s.params;
    s.mix.SetSampleRate(sampleRate);
    s.damping = p[kReverbDamping];
    s.bandwidth = p[kReverbBrightness];
    s.preForward = Cube(p[kReverbDiffusion]);
    s.preRecursion = Cube(0.9f * p[kReverbFeedback]);
    s.decayGain = p[kReverbDecay] * 0.65f;
    SetPreDelayLength(s.ring[S::kP].line, ReverbPreDelayLength(p[kReverbTime]));
    s.mix.SetTarget(p[kReverbDryWet]);
}

} // namespace

int32_t ReverbPreDelayLength(float time) {
    const int32_t raw = StepIndex(time * time, 131072.0f, kStorage);
    return std::max(4, raw & ~3);
}

void Init(PlateReverbState& state) {
    for (int e = 0; e < S::kElementCount; ++e) {
        state.ring[e].line.Allocate(kStorage);
        state.ring[e].line.SetLength(kShapes[e].length);
    }
    Reset(state);
    state.ready = true;
}

void Reset(PlateReverbState& state) {
    for (int e = 0; e < S::kElementCount; ++e) {
        // Only a ring's first `length` samples are ever read (a growing
        // pre-delay clears its new extent itself).
        dsp::DelayLine& line = state.ring[e].line;
        line.Clear();
        if (line.Length() != kShapes[e].length) line.SetLength(kShapes[e].length);
    }
    state.bandState = state.dampL = state.dampR = 0.0f;
    // wetLevel carries on: the next sound comes in at the current level.
    state.mix.Jump(state.params[kReverbDryWet]);
    state.InvalidateDerived(); // restores the pre-delay's length
}

int32_t Process(PlateReverbState& state, Inputs in, uint64_t, Outputs out, uint64_t,
                const ProcessContext& ctx) {
    S& s = state;
    const int32_t status = s.Begin(s, in, out, ctx, Derive);
    if (status != kProcessOk) return status;
    s.wetLevel = FlushTiny(s.wetLevel + (s.params[kReverbInGain] - s.wetLevel) * 0.05f);

    ReverbRing* e = s.ring;
    const float* xl = in[0];
    const float* xr = in[1];
    float* outL = out[0];
    float* outR = out[1];
    const int32_t groups = ctx.frameCount / 4;

    for (int32_t gi = 0; gi < groups; ++gi) {
        const int32_t o = 4 * gi;
        float b[4];
        for (int n = 0; n < 4; ++n) {
            const float x = (xl[o + n] + xr[o + n]) * 0.5f;
            s.bandState = x * s.bandwidth + (1.0f - s.bandwidth) * s.bandState;
            b[n] = s.bandState;
        }
        float pre[4];
        AllPass(e[S::kP], b, pre, s.preRecursion, s.preForward);

        float sum[4] = {0.0f, 0.0f, 0.0f, 0.0f};
        for (int c = S::kC1; c <= S::kC4; ++c) {
            float y[4];
            Comb(e[c], pre, y, kShapes[c].g);
            for (int n = 0; n < 4; ++n) sum[n] += y[n];
        }
        float u[4];
        AllPass(e[S::kD1], sum, u, kShapes[S::kD1].g, kShapes[S::kD1].g);
        for (int d = S::kD2; d <= S::kD4; ++d) AllPass(e[d], u, u, kShapes[d].g, kShapes[d].g);

        // Left half, fed by T4's oldest group.
        const float* t4Out = e[S::kT4].Oldest();
        float v[4];
        for (int n = 0; n < 4; ++n) v[n] = t4Out[n] * s.decayGain + u[n];
        AllPass(e[S::kA1], v, v, kShapes[S::kA1].g, kShapes[S::kA1].g);
        Delay(e[S::kT1], v, v);
        for (int n = 0; n < 4; ++n) {
            s.dampL = s.damping * s.dampL + (1.0f - s.damping) * v[n];
            v[n] = s.dampL * s.decayGain;
        }
        AllPass(e[S::kA2], v, v, kShapes[S::kA2].g, kShapes[S::kA2].g);
        float t2Out[4];
        Delay(e[S::kT2], v, t2Out);

        // Right half, fed by T2's output.
        for (int n = 0; n < 4; ++n) v[n] = t2Out[n] * s.decayGain + u[n];
        AllPass(e[S::kA3], v, v, kShapes[S::kA3].g, kShapes[S::kA3].g);
        Delay(e[S::kT3], v, v);
        for (int n = 0; n < 4; ++n) {
            s.dampR = s.damping * s.dampR + (1.0f - s.damping) * v[n];
            v[n] = s.dampR * s.decayGain;
        }
        AllPass(e[S::kA4], v, v, kShapes[S::kA4].g, kShapes[S::kA4].g);
        Delay(e[S::kT4], v, v);

        s.bandState = FlushTiny(s.bandState);
        s.dampL = FlushTiny(s.dampL);
        s.dampR = FlushTiny(s.dampR);

        for (int n = 0; n < 4; ++n) {
            const float wetL =
                (e[S::kT3].Tap(394, n) + e[S::kT3].Tap(4407, n) - e[S::kA4].Tap(2835, n) +
                 e[S::kT4].Tap(2958, n) - e[S::kT1].Tap(2949, n) - e[S::kA2].Tap(277, n) -
                 e[S::kT2].Tap(1580, n)) *
                s.wetLevel;
            const float wetR =
                (e[S::kT1].Tap(523, n) + e[S::kT1].Tap(5374, n) - e[S::kA2].Tap(1820, n) +
                 e[S::kT2].Tap(3961, n) - e[S::kT3].Tap(3128, n) - e[S::kA4].Tap(496, n) -
                 e[S::kT4].Tap(179, n)) *
                s.wetLevel;
            const float m = s.mix.Next();
            outL[o + n] = (1.0f - m) * xl[o + n] + m * wetL;
            outR[o + n] = (1.0f - m) * xr[o + n] + m * wetR;
        }
    }
    // Frames that do not fill a group (the engine always sends whole groups)
    // pass dry.
    for (int32_t n = 4 * groups; n < ctx.frameCount; ++n) {
        outL[n] = xl[n];
        outR[n] = xr[n];
    }
    return kProcessOk;
}

} // namespace Norvell::Vantor
