#include "processor/modules/dualphaser.h"

#include "dsp/breakpointtable.h"

#include <array>
#include <cmath>

namespace Norvell::Vantor {

namespace {

constexpr float kPi = 3.1415927f;
constexpr float kTiny = 5.551115e-17f; // 2^-54

inline float Flush(float x) {
    return std::fabs(x) < kTiny ? 0.0f : x;
}

// 2^(x/12) for x in semitones, one entry per semitone over -120..192;
// the clamped ends give 2^-10 below and 2^16 above.
const dsp::BreakpointTable<313>& SemitoneTable() {
    static const auto table = [] {
        std::array<float, 313> v{};
        for (size_t i = 0; i < v.size(); ++i)
            v[i] = std::exp2((static_cast<float>(i) - 120.0f) / 12.0f);
        return dsp::BreakpointTable<313>::FromValues(v);
    }();
    return table;
}

// T7(x) = x (x^6 + 378x^4 + 17325x^2 + 135135) / (28x^6 + 3150x^4 + 62370x^2 + 135135).
inline float T7(float x) {
    const float x2 = x * x;
    const float x4 = x2 * x2;
    const float x6 = x4 * x2;
    return x * (x6 + 378.0f * x4 + 17325.0f * x2 + 135135.0f) /
           (28.0f * x6 + 3150.0f * x4 + 62370.0f * x2 + 135135.0f);
}

// One random step through the two-pole smoother; returns the smoothed value.
float RandomStep(PhaserSection& ph, float rate, float sampleRate) {
    ph.randomState = ph.randomState * 196314165u + 907633515u;
    const float x = static_cast<float>(static_cast<int32_t>(ph.randomState)) * 4.656613e-10f;
    const float k = 1.0f / std::tan((rate * 47.12389f + 0.9424778f) / sampleRate);
    const float k2 = k * k;
    const float d = 1.0f / (k2 + 8.0f * k + 1.0f);
    const float y = Flush((x + ph.x2) * d + 2.0f * d * ph.x1 - (1.0f - k2) * 2.0f * d * ph.y1 -
                          (1.0f - 8.0f * k + k2) * d * ph.y2);
    ph.x2 = ph.x1;
    ph.x1 = x;
    ph.y2 = ph.y1;
    ph.y1 = y;
    return y;
}

void AdvanceSine(PhaserSection& ph, float step) {
    ph.phase += step;
    if (ph.phase >= kTwoPi) ph.phase -= kTwoPi;
}

// All-pass corner from the LFO value, and the stage coefficients.
void SetCorner(PhaserSection& ph, float lfo, float sampleRate) {
    float f = 520.0f * SemitoneTable().AtIndex(lfo * ph.depthAmt * 100.0f + 120.0f);
    f = f < 10.0f ? 10.0f : (f > 16000.0f ? 16000.0f : f);
    ph.corner = f;
    const float w = -kTwoPi * f / sampleRate;
    ph.b = 1.0f + w + w * w / 2.0f + w * w * w / 6.0f;
    ph.a = 1.0f - ph.b;
}

// Five stages; the first subtracts the saturated feedback.
float RunStages(PhaserSection& ph, float u) {
    const float fb = T7(ph.fbAmt * ph.fbMem);
    const float fbClamped = fb < -1.0f ? -1.0f : (fb > 1.0f ? 1.0f : fb);
    for (int j = 0; j < 5; ++j) {
        const float t = Flush(-ph.a * u);
        const float s = Flush(t + ph.stage[j]);
        ph.stage[j] = Flush(s * ph.b + t);
        u = Flush(j == 0 ? s + u - fbClamped : s + u);
    }
    return u;
}

void Derive(DualPhaserState& s, float sampleRate) {
    s.mix.SetSampleRate(sampleRate);
    const auto& p = s.params;
    s.section[0].freeRate = PhaserFreeRate(p[kPhaserRate1]);
    s.section[1].freeRate = PhaserFreeRate(p[kPhaserRate2]);
    s.section[0].syncFactor = PhaserSyncFactor(p[kPhaserRate1]);
    s.section[1].syncFactor = PhaserSyncFactor(p[kPhaserRate2]);
    s.dual = static_cast<float>(StepIndex(p[kPhaserDualMode], 1.0f, 1));
    s.single = 1.0f - s.dual;
    s.mix.SetTarget(p[kPhaserDryWet]);
}

} // namespace

float PhaserFreeRate(float v) {
    const float r = std::exp(5.0f * v) * 0.08140386f - 0.08140386f;
    return r > 0.001f ? r : 0.001f;
}

int32_t PhaserSyncFactor(float v) {
    const int32_t i = StepIndex(v, 16.0f, 15);
    if (i <= 13) return i - 15;
    return i == 14 ? 1 : 2;
}

void Init(DualPhaserState& state) {
    SemitoneTable();
    Reset(state);
    state.ready = true;
}

void Reset(DualPhaserState& state) {
    for (PhaserSection& ph : state.section) {
        for (float& st : ph.stage) st = 0.0f;
        ph.fbMem = 0.0f;
        ph.phase = 0.0f;
        ph.randomState = 0;
        ph.x1 = ph.x2 = ph.y1 = ph.y2 = 0.0f;
    }
    state.fade = 0.0f;
}

int32_t Process(DualPhaserState& state, Inputs in, uint64_t, Outputs out, uint64_t,
                const ProcessContext& ctx) {
    DualPhaserState& s = state;
    const int32_t status = s.Begin(s, in, out, ctx, Derive);
    if (status != kProcessOk) return status;

    const auto& p = s.params;
    PhaserSection& ph1 = s.section[0];
    PhaserSection& ph2 = s.section[1];
    const float sr = ctx.sampleRate;

    // Values smoothed once per call.
    s.stereoAmt += (p[kPhaserStereo] - s.stereoAmt) * 0.01f;
    ph1.depthAmt += (p[kPhaserDepth1] - ph1.depthAmt) * 0.01f;
    ph2.depthAmt += (p[kPhaserDepth2] - ph2.depthAmt) * 0.01f;
    ph1.fbAmt += (p[kPhaserFeedback1] - ph1.fbAmt) * 0.25f;
    ph2.fbAmt += (p[kPhaserFeedback2] - ph2.fbAmt) * 0.25f;

    // LFO rates.
    const bool synced = p[kPhaserMidiSync] > 0.0f;
    const auto rateOf = [&](const PhaserSection& ph) {
        if (!synced) return ph.freeRate;
        const float f = static_cast<float>(ph.syncFactor);
        return f > 0.0f ? ctx.tempo * f / 60.0f : ctx.tempo / (60.0f * -f);
    };
    const float r1 = rateOf(ph1);
    const float r2 = rateOf(ph2);
    // The sine advances at half the rate, one whole call at a time.
    const float phaseStep = static_cast<float>(ctx.frameCount) * kTwoPi / sr;

    float lfo1;
    if (p[kPhaserType1] != 0.0f) {
        lfo1 = 10.0f * RandomStep(ph1, r1, sr);
    } else {
        lfo1 = std::sin(ph1.phase);
        AdvanceSine(ph1, phaseStep * r1 * 0.5f);
    }
    float lfo2;
    if (p[kPhaserType2] != 0.0f) {
        const float y2 = RandomStep(ph2, r2, sr);
        lfo2 = (1.0f - s.stereoAmt) * lfo1 + s.stereoAmt * 10.0f * y2;
    } else {
        lfo2 = std::sin(ph2.phase + kPi * s.stereoAmt);
        AdvanceSine(ph2, phaseStep * r2 * 0.5f);
    }
    SetCorner(ph1, lfo1, sr);
    SetCorner(ph2, lfo2, sr);

    const float dual = s.dual;
    const float single = s.single;
    const float* xl = in[0];
    const float* xr = in[1];
    float* outL = out[0];
    float* outR = out[1];
    for (int32_t n = 0; n < ctx.frameCount; ++n) {
        const float l = xl[n];
        const float r = xr[n];
        const float y1 = RunStages(ph1, l + dual * r);
        ph1.fbMem = y1 * s.fade;
        const float y2 = RunStages(ph2, dual * y1 + single * r);
        ph2.fbMem = y2 * s.fade;
        s.fade += (1.0f - s.fade) * 0.08f;

        const float m = s.mix.Next();
        const float dryGain = 1.0f - m * m;
        const float wetGain = ((2.0f - 2.0f * m) * m + 1.0f) * (2.0f * m - m * m);
        const float wetL = dual * y2 + single * y1;
        outL[n] = wetGain * wetL + dryGain * l;
        outR[n] = dryGain * r + wetGain * y2;
    }
    return kProcessOk;
}

} // namespace Norvell::Vantor
