#pragma once
// Stereo delay (effect type 1): two lines with free or tempo-synced times,
// feedback through a 300 Hz state-variable section with a damping blend and a
// soft clipper, optional ping-pong, linked times, an inverted right wet
// signal, and a read pointer that glides to a new time instead of jumping.
#include "dsp/delayline.h"
#include "dsp/smoother.h"
#include "processor/modules/effectcommon.h"

#include <cstdint>

namespace Norvell::Vantor {

enum StereoDelayParam : size_t {
    kDelayTime1,
    kDelayTime1Sync, // held, not used: the synced division comes from time1
    kDelayFeedback1,
    kDelayTime2,
    kDelayTime2Sync, // held, not used
    kDelayFeedback2,
    kDelayDamping,
    kDelayMidiSync,
    kDelayPingPong,
    kDelayLink,
    kDelayPhaseInv,
    kDelayDryWet,
    kDelayParamCount
};

// Delay in samples of the free time law (independent of the sample rate).
float DelayTimeLaw(float v);
// Delay periods per beat of the synced division law.
float DelaySyncFactor(float v);

struct StereoDelayLine {
    dsp::DelayLine buf;   // counts up: the call's samples are stored ahead of the position
    int32_t base = 0;     // read index of the call's first sample
    float readPos = 0.0f; // fractional read position relative to base
    float len = 0.0f;     // current delay (samples)
    float time = 0.0f;    // free-mode target (samples)
    float factor = 1.0f;  // synced-mode periods per beat
    float fb = 0.0f;      // feedback value
    float gain = 0.0f;    // ramped feedback gain
    float band = 0.0f;    // state-variable section
    float low = 0.0f;
    float prevFeed = 0.0f; // feed signal of the previous sample (ping-pong cross)
};

struct StereoDelayState : EffectCore<kDelayParamCount> {
    static constexpr int32_t kLineLength = 96000;
    static constexpr int32_t kMinDelay = 65;

    StereoDelayLine line[2]; // left, right
    float tempo1 = 120.0f;   // two cascaded one-pole tempo followers
    float tempo2 = 120.0f;
    float off = 1e-25f; // tiny offset against subnormals, sign flipped per call
    dsp::Smoother mix{0.02f};
    bool lengthsSet = false; // the first derived computation sets len directly
};

// Allocates and clears the effect's memory and marks it ready (construction only).
void Init(StereoDelayState& state);
// Clears the effect's memory (all notes off).
void Reset(StereoDelayState& state);
int32_t Process(StereoDelayState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
