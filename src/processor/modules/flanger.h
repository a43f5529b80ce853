#pragma once
// Flanger (effect type 4): one parabolic sweep shared by both channels,
// feedback around each channel's short delay line, inverted wet mix.
#include "dsp/delayline.h"
#include "processor/modules/effectcommon.h"

#include <cstdint>

namespace Norvell::Vantor {

enum FlangerParam : size_t {
    kFlangerRate,
    kFlangerDepth,
    kFlangerFeedback,
    kFlangerDelay,
    kFlangerDryWet,
    kFlangerParamCount
};

struct FlangerState : EffectCore<kFlangerParamCount> {
    static constexpr int32_t kLineLength = 2048;
    static constexpr int32_t kMask = kLineLength - 1;

    // Derived values.
    float increment = 0.0f; // sweep phase advance per sample
    float sweep = 0.0f;     // swept part of the delay (samples)
    float minimum = 0.0f;   // fixed part of the delay (samples)
    float fb = 0.0f;
    float dry = 1.0f;

    dsp::DelayLine bufL; // count down; both always at the same position
    dsp::DelayLine bufR;
    float phase = 0.0f; // sweep phase, -1..1
    float lastL = 0.0f; // previous delayed samples
    float lastR = 0.0f;
};

// Allocates and clears the effect's memory and marks it ready (construction only).
void Init(FlangerState& state);
// Clears the effect's memory (all notes off).
void Reset(FlangerState& state);
int32_t Process(FlangerState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
