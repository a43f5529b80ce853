#include "processor/modules/envelope.h"

#include "dsp/breakpointtable.h"
#include "dsp/fastmath.h"
#include "processor/modules/voices.h"

#include <algorithm>

namespace Norvell::Vantor {

namespace {

using TimeTable = dsp::BreakpointTable<64>;

const TimeTable kDelayTable = TimeTable::FromBreakpoints({{0, 0.0f},
                                                          {10, 0.0972789f},
                                                          {20, 0.1854195f},
                                                          {30, 0.2750567f},
                                                          {40, 0.3602721f},
                                                          {45, 0.4330385f},
                                                          {50, 0.6691383f},
                                                          {55, 1.1242857f},
                                                          {60, 1.7285714f},
                                                          {63, 2.2936282f}});
const TimeTable kAttackTable = TimeTable::FromBreakpoints({{0, 0.006f},
                                                           {10, 0.0166893f},
                                                           {20, 0.1503628f},
                                                           {30, 0.3656236f},
                                                           {40, 0.6569615f},
                                                           {45, 0.9658277f},
                                                           {50, 1.5455782f},
                                                           {55, 2.887982f},
                                                           {60, 6.917914f},
                                                           {63, 15.296372f}});
const TimeTable kDecayTable = TimeTable::FromBreakpoints({{0, 0.006f},
                                                          {10, 0.0907029f},
                                                          {20, 0.6984127f},
                                                          {30, 1.8594104f},
                                                          {40, 3.526077f},
                                                          {45, 5.442177f},
                                                          {50, 9.410431f},
                                                          {55, 16.804535f},
                                                          {60, 36.22449f},
                                                          {63, 72.55181f}});
const TimeTable kReleaseTable = TimeTable::FromBreakpoints({{0, 0.006f},
                                                            {10, 0.044898f},
                                                            {20, 0.6575964f},
                                                            {30, 1.8820862f},
                                                            {40, 3.5174603f},
                                                            {45, 6.054422f},
                                                            {50, 9.433106f},
                                                            {55, 17.142857f},
                                                            {60, 37.097507f},
                                                            {63, 85.0f}});

// Stands in for an unconnected modulation input.

using dsp::Clamp01;

void Derive(EnvelopeState& s) {
    const auto& p = s.params;
    s.lfoTrigOn = p[kEnvLfoTrig] > 0.0f ? 1 : 0;
    s.triggerIndex = static_cast<uint32_t>(StepIndex(p[kEnvLfoId], 6.0f, 5));
}

void StartSegment(EnvelopeState& s, float from, float to) {
    s.segStart = from;
    s.segTarget = to;
    s.progress = 0.0;
    s.curveConstant = kSegmentCurve;
    s.curveScale = kSegmentScale;
    s.segmentDone = 0;
}

// One sample of an exponential segment that takes about n samples; n is
// re-read every sample so modulation bends the curve while it runs.
void AdvanceSegment(EnvelopeState& s, float n) {
    s.progress += (1.0 - s.progress) * s.curveConstant / n;
    const double y = s.progress * s.curveScale;
    s.level = static_cast<float>(s.segTarget +
                                 (static_cast<double>(s.segStart) - s.segTarget) * (1.0 - y));
    s.segmentDone = s.segTarget >= s.level ? 1 : 0;
}

// The contour has reached zero: silence the rest of the block.
int32_t EndContour(EnvelopeState& s, float* out, int n) {
    std::fill(out + n, out + kBlockSize, 0.0f);
    s.level = 0.0f;
    s.delayElapsed = 0.0;
    s.finished = 1;
    return kProcessOk;
}

} // namespace

void Init(EnvelopeState& state, int32_t voiceIndex) {
    state.voiceIndex = voiceIndex;
}

int32_t Process(EnvelopeState& s, Inputs in, uint64_t, Outputs out, uint64_t,
                const ProcessContext& ctx) {
    const VoiceState* voices = ctx.voiceState;
    if (voices == nullptr) return kProcessMissing;
    if (s.restartPending) {
        s.stage = kStageDelay;
        s.restartPending = 0;
        s.finished = 0;
    }

    const int32_t v = s.voiceIndex;
    const bool known = v >= 0 && v < kVoiceCount;
    // Ungated LFO triggering replaces the keyboard gate by an open one.
    const bool gate = (known && HasVoice(voices->gateVoices, v)) ||
                      (s.lfoTrigOn && s.params[kEnvGatedLfoTrig] == 0.0f);
    const bool active = known && HasVoice(voices->activeVoices, v);
    const bool trigger = known && HasVoice(voices->triggerVoices, v);
    const bool releaseEvent = known && HasVoice(voices->releaseVoices, v);

    if (s.params.Refresh()) Derive(s);

    if (out == nullptr || out[0] == nullptr) return kProcessMissing;
    float* y = out[0];
    if (!active && !s.lfoTrigOn) {
        s.prevGate = 0;
        std::fill(y, y + kBlockSize, 0.0f);
        return kProcessOk;
    }

    if (!gate && s.params[kEnvFreerun] < 1.0f) {
        if (s.stage != kStageRelease) s.releaseStartPending = 1;
        s.stage = kStageRelease;
    }
    if (trigger) {
        if (releaseEvent || s.prevGate != static_cast<uint8_t>(gate)) {
            s.stage = kStageDelay; // from the current level
        } else if (s.params[kEnvReset] > 0.0f || s.params[kEnvSingleTrig] > 0.0f) {
            s.stage = kStageRelease;
            s.fastRelease = 1;
        }
        // Otherwise a legato retrigger leaves the contour alone.
    }
    s.prevGate = gate ? 1 : 0;
    if (s.lfoTrigOn)
        s.triggerCursor = in != nullptr ? in[kEnvInFirstTrigger + s.triggerIndex] : nullptr;

    // Each modulation input advances only on samples whose stage reads it.
    const float* mod[kEnvInFirstTrigger];
    for (int i = 0; i < kEnvInFirstTrigger; ++i)
        mod[i] = in != nullptr && in[i] != nullptr ? in[i] : kSilentBlock;
    const float sampleRate = ctx.sampleRate;
    const double samplePeriod = 1.0 / static_cast<double>(sampleRate);
    auto amp = [&] { return Clamp01(s.params[kEnvAmp] + *mod[kEnvInAmp]++); };

    for (int n = 0; n < kBlockSize; ++n) {
        if (s.lfoTrigOn && s.triggerCursor != nullptr) {
            const float x = *s.triggerCursor++;
            const bool armed =
                (s.params[kEnvGatedLfoTrig] > 0.0f && gate) || s.params[kEnvGatedLfoTrig] == 0.0f;
            if (armed && x > 0.0f && s.prevTriggerSample <= 0.0f) {
                s.stage = kStageRelease;
                s.fastRelease = 1;
            }
            s.prevTriggerSample = x;
        }

        switch (s.stage) {
        case kStageDelay: {
            const float m = *mod[kEnvInDelay]++;
            if (!(m > 0.0f)) s.delayElapsed += samplePeriod;
            // The live parameter value, not the copy, sets the delay time.
            if (s.delayElapsed + samplePeriod >
                kDelayTable.Lookup(Clamp01(m + s.params[kEnvDelay])))
                s.stage = kStageAttack;
            y[n] = s.level * amp();
            break;
        }
        case kStageAttack: {
            s.delayElapsed = 0.0;
            const float m = *mod[kEnvInAttack]++;
            if (m <= s.attackHoldThreshold)
                s.level += 1.0f / (kAttackTable.Lookup(Clamp01(s.params[kEnvAttack] + 3.0f * m)) *
                                   sampleRate);
            y[n] = s.level * amp();
            if (s.level >= 1.0f) {
                s.level = 1.0f;
                if (s.params[kEnvSustain] == 1.0f) {
                    s.stage = kStageSustain;
                } else {
                    StartSegment(s, 1.0f, s.params[kEnvSustain]);
                    s.stage = kStageDecay;
                }
            }
            break;
        }
        case kStageDecay: {
            const float m = *mod[kEnvInDecay]++;
            AdvanceSegment(s, kDecayTable.Lookup(Clamp01(s.params[kEnvDecay] + 3.0f * m)) *
                                  sampleRate);
            y[n] = s.level * amp();
            if (s.segmentDone) s.stage = kStageSustain;
            break;
        }
        case kStageSustain:
            if (s.params[kEnvSustain] == 0.0f) {
                s.level = 0.0f;
                s.stage = kStageRelease;
                amp();
                y[n] = 0.0f;
            } else if ((s.params[kEnvFreerun] > 0.0f && !gate) || s.params[kEnvDadr] > 0.0f) {
                s.releaseStartPending = 1;
                s.stage = kStageRelease;
                y[n] = s.level * amp();
            } else {
                s.level = s.params[kEnvSustain]; // follows a change of sustain at once
                y[n] = s.level * amp();
            }
            break;
        default: {
            if (s.releaseStartPending) {
                s.releaseStartPending = 0;
                StartSegment(s, s.level, 0.0f);
            }
            if (s.fastRelease) {
                // 1, 127/128, ... 0: at most 128 faded samples plus one.
                const float g = s.fastGain;
                s.fastGain = g - kFastFadeStep;
                s.level = g * s.level;
                if (s.level > kFastFadeFloor) {
                    y[n] = s.level * amp();
                    break;
                }
                s.fastRelease = 0;
                s.restartPending = 1;
                s.fastGain = 1.0f;
                return EndContour(s, y, n);
            }
            if (s.level == 0.0f) return EndContour(s, y, n);
            const float m = *mod[kEnvInRelease]++;
            AdvanceSegment(s, kReleaseTable.Lookup(Clamp01(s.params[kEnvRelease] + 3.0f * m)) *
                                  sampleRate);
            if (s.segmentDone) return EndContour(s, y, n);
            y[n] = s.level * amp();
            break;
        }
        }
    }
    return kProcessOk;
}

} // namespace Norvell::Vantor
