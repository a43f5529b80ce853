#include "processor/modules/stereodelay.h"

#include "dsp/breakpointtable.h"
#include "dsp/fastmath.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace Norvell::Vantor {

namespace {

constexpr int32_t kLen = StereoDelayState::kLineLength;

const dsp::BreakpointTable<9>& TimeTable() {
    static const auto table = dsp::BreakpointTable<9>::FromValues(
        {200.0f, 400.0f, 800.0f, 1600.0f, 3200.0f, 6400.0f, 12800.0f, 17000.0f, 22050.0f});
    return table;
}

// Factor of row k, where row k holds the values below (k + 1) / 16.
constexpr std::array<float, 16> kSyncFactors = {
    16.0f, 12.0f,      8.0f, 6.0f,  4.0f,       3.0f, 2.6666667f,  2.0f,
    1.5f,  1.3333334f, 1.0f, 0.75f, 0.6666667f, 0.5f, 0.33333334f, 0.25f};

using dsp::Clamp;
using dsp::SoftSaturate;

// Pi x 300 Hz: the feedback section's corner, 2 sin(pi fc / rate).
constexpr float kSectionOmega = 942.47784f;
// Fraction of the way the tempo followers move towards the host tempo per call.
constexpr float kTempoFollow = 0.001f;
// Shortest synced delay period: 2000 periods per second.
constexpr float kMaxSyncRate = 2000.0f;
// Feedback gains ramp to their new value over this many samples.
constexpr int32_t kGainRamp = 32;
// Feedback value 1 sets a gain of 1.6.
constexpr float kFeedbackGain = 1.6f;
// Input and recirculation level into the feedback section.
constexpr float kFeedLevel = 0.6f;
// Level scale of the written signal, normal and ping-pong routing.
constexpr float kWriteLevel = 0.25f;
constexpr float kPingPongWriteLevel = 0.0375f;
// Share of the remaining read-position gap closed per sample.
constexpr float kGlideRate = 0.005f;

void Derive(StereoDelayState& s, float sampleRate) {
    s.mix.SetSampleRate(sampleRate);
    const auto& p = s.params;
    StereoDelayLine& l = s.line[0];
    StereoDelayLine& r = s.line[1];
    l.factor = DelaySyncFactor(p[kDelayTime1]);
    l.time = DelayTimeLaw(p[kDelayTime1]);
    l.fb = p[kDelayFeedback1];
    const bool linked = p[kDelayLink] > 0.0f;
    const float rTime = linked ? p[kDelayTime1] : p[kDelayTime2];
    r.factor = DelaySyncFactor(rTime);
    r.time = DelayTimeLaw(rTime);
    r.fb = linked ? p[kDelayFeedback1] : p[kDelayFeedback2];
    if (!s.lengthsSet) {
        for (StereoDelayLine& line : s.line)
            line.len = Clamp(line.time, static_cast<float>(StereoDelayState::kMinDelay),
                             static_cast<float>(kLen));
        s.lengthsSet = true;
    }
    s.mix.SetTarget(p[kDelayDryWet]);
}

} // namespace

float DelayTimeLaw(float v) {
    if (v >= 1.0f) return 44100.0f;
    if (v < 0.0f) return 400.0f;
    return 2.0f * TimeTable().Lookup(v);
}

float DelaySyncFactor(float v) {
    if (!(v > 0.0f)) return 32.0f;
    return kSyncFactors[static_cast<size_t>(StepIndex(v, 16.0f, 15))];
}

void Init(StereoDelayState& state) {
    for (StereoDelayLine& l : state.line) l.buf.Allocate(kLen);
    Reset(state);
    state.ready = true;
}

void Reset(StereoDelayState& state) {
    for (StereoDelayLine& l : state.line) {
        l.buf.Clear();
        l.base = 0;
        l.readPos = l.len = l.gain = l.band = l.low = l.prevFeed = 0.0f;
    }
    state.tempo1 = state.tempo2 = 120.0f;
    state.lengthsSet = false;
    state.InvalidateDerived();
}

int32_t Process(StereoDelayState& state, Inputs in, uint64_t, Outputs out, uint64_t,
                const ProcessContext& ctx) {
    StereoDelayState& s = state;
    const int32_t status = s.Begin(s, in, out, ctx, Derive);
    if (status != kProcessOk) return status;

    const auto& p = s.params;
    StereoDelayLine& L = s.line[0];
    StereoDelayLine& R = s.line[1];
    const int32_t frames = ctx.frameCount;
    const float nf = static_cast<float>(frames);
    const float sr = ctx.sampleRate;

    // Offset sign and the limits of the read-speed change per sample.
    s.off = -s.off;
    const float off = s.off;
    const float up = (2.0f * nf - 1.0f) / nf - 1.0f;
    const float down = nf / (2.0f * nf - 1.0f) - 1.0f;

    // Tempo followers.
    s.tempo1 += (ctx.tempo - s.tempo1) * kTempoFollow;
    s.tempo2 += (s.tempo1 - s.tempo2) * kTempoFollow;

    // Routing and delay targets.
    const bool pp = p[kDelayPingPong] > 0.0f;
    const bool lk = p[kDelayLink] > 0.0f;
    const float fbRsel = pp ? R.fb : (lk ? L.fb : R.fb);
    float tgtL;
    float tgtR;
    if (!(p[kDelayMidiSync] > 0.0f)) {
        tgtL = L.time;
        tgtR = pp ? R.time : (lk ? L.time : R.time);
    } else {
        const auto period = [&](float f) {
            return sr / std::min(s.tempo2 * f / 60.0f, kMaxSyncRate);
        };
        tgtL = period(L.factor);
        tgtR = pp ? period(R.factor) : (lk ? period(L.factor) : period(R.factor));
    }
    const float lo = static_cast<float>(StereoDelayState::kMinDelay);
    const float hi = std::max(lo, static_cast<float>(kLen - frames));
    tgtL = Clamp(tgtL, lo, hi);
    tgtR = Clamp(tgtR, lo, hi);

    const float ramp = static_cast<float>(kGainRamp);
    const float gainStepL = (L.fb * kFeedbackGain - L.gain) / ramp;
    const float gainStepR = (fbRsel * kFeedbackGain - R.gain) / ramp;

    const float g = pp ? kPingPongWriteLevel : kWriteLevel;
    const float f = 2.0f * std::sin(kSectionOmega / sr);
    const float damping = p[kDelayDamping];
    const bool invert = p[kDelayPhaseInv] >= 0.5f;

    float gapL = L.len - tgtL;
    float gapR = R.len - tgtR;
    const float* xl = in[0];
    const float* xr = in[1];
    float* outL = out[0];
    float* outR = out[1];

    const auto read = [](const StereoDelayLine& line, float o) {
        const int32_t ip = static_cast<int32_t>(line.readPos);
        const float a = line.readPos - static_cast<float>(ip);
        const int32_t i = (ip + line.base) % kLen;
        const int32_t i1 = i + 1 == kLen ? 0 : i + 1;
        return (1.0f - a) * line.buf[i] + a * line.buf[i1] + o;
    };
    const auto section = [f](StereoDelayLine& line, float x) {
        const float d = x - line.band;
        line.low += f * line.band;
        const float high = d - line.low;
        line.band += f * high;
    };
    const auto write = [&](StereoDelayLine& line, float cross, int32_t n) {
        const float m =
            ((off + line.band + 0.5f * cross) * damping * 0.9f + (1.0f - damping) * cross) * g;
        line.buf.StoreAhead(n, Clamp(SoftSaturate(m), -1.0f, 1.0f) * 2.0f / g);
    };

    for (int32_t n = 0; n < frames; ++n) {
        const float sL = read(L, off);
        float sR = read(R, off);
        float eL;
        float eR;
        float cL;
        float cR;
        if (!pp) {
            eL = (xl[n] + L.gain * sL) * kFeedLevel;
            eR = (xr[n] + R.gain * sR) * kFeedLevel;
            cL = 0.5f * eL;
            cR = 0.5f * eR;
        } else {
            eL = (xl[n] + xr[n] + L.gain * sL) * kFeedLevel;
            eR = R.gain * sR * kFeedLevel;
            cL = kFeedLevel * R.prevFeed;
            cR = kFeedLevel * eL;
        }
        L.prevFeed = eL;
        R.prevFeed = eR;
        if (n < kGainRamp) {
            L.gain += gainStepL;
            R.gain += gainStepR;
        }
        section(L, cL);
        section(R, cR);
        write(L, cL, n);
        write(R, cR, n);

        const float m = s.mix.Next();
        if (invert) sR = -sR;
        outL[n] = m * sL + (1.0f - m) * xl[n];
        outR[n] = (1.0f - m) * xr[n] + m * sR;

        const float dL = Clamp(gapL * kGlideRate, down, up);
        gapL -= dL;
        L.readPos += 1.0f + dL;
        const float dR = Clamp(gapR * kGlideRate, down, up);
        gapR -= dR;
        R.readPos += 1.0f + dR;
    }

    // Lengths after the glide, fractional read positions, write and base indexes.
    L.len = gapL + tgtL;
    R.len = gapR + tgtR;
    for (StereoDelayLine& line : s.line) {
        line.readPos -= std::trunc(line.readPos);
        line.buf.Advance(frames);
        line.base = (line.buf.Position() - static_cast<int32_t>(line.len) + kLen) % kLen;
    }
    return kProcessOk;
}

} // namespace Norvell::Vantor
