#pragma once
// Dub delay (effect type 3): stereo tape-style echo with a tilt tone filter and
// a soft limiter in the feedback path and a slow sine modulation of the delay.
#include "dsp/delayline.h"
#include "processor/modules/effectcommon.h"

#include <cstdint>

namespace Norvell::Vantor {

enum DubDelayParam : size_t {
    kDubDelayTime,
    kDubDelayFbTone,
    kDubDelayFeedback,
    kDubDelayLfoDepth,
    kDubDelayLfoRate,
    kDubDelayDryWet,
    kDubDelayParamCount
};

struct DubDelayChannel {
    dsp::DelayLine buf; // kBufMax + 1 samples, counting down; both channels step together
    float pos = 0.0f;   // current delay (samples)
    float tgt = 0.0f;   // ramp target of pos
    float step = 0.0f;  // per-sample ramp step of pos
    float lp = 0.0f;    // tone filter state
    float env = 0.0f;   // limiter envelope
};

struct DubDelayState : EffectCore<kDubDelayParamCount> {
    static constexpr int32_t kBufMax = 768000;

    // Derived values.
    float delaySamples = 0.0f;
    float depthSamples = 0.0f;
    float lfoIncrement = 0.0f; // phase advance per modulation update (every 100 samples)
    float fbk = 0.0f;
    float release = 0.8f;
    float lowMix = 1.0f;
    float highMix = 0.0f;
    float toneCoef = 0.0f;
    float dry = 1.0f;

    DubDelayChannel ch[2];
    float lfoPhase = 0.0f; // radians
};

// Allocates and clears the effect's memory and marks it ready (construction only).
void Init(DubDelayState& state);
// Clears the effect's memory (all notes off).
void Reset(DubDelayState& state);
int32_t Process(DubDelayState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
