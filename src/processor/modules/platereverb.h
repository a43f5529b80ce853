#pragma once
// Plate reverb (effect type 6): a long all-pass pre-delay, four parallel
// combs, four input diffusers and a figure-eight tank of two all-pass/delay
// halves, read at seven taps per side. Runs in groups of four samples.
#include "dsp/delayline.h"
#include "dsp/smoother.h"
#include "processor/modules/effectcommon.h"

#include <cstdint>

namespace Norvell::Vantor {

enum PlateReverbParam : size_t {
    kReverbInGain,
    kReverbDamping,
    kReverbBrightness,
    kReverbDiffusion,
    kReverbDecay,
    kReverbFeedback,
    kReverbTime,
    kReverbDryWet,
    kReverbParamCount
};

// Delay ring of length `length` (a multiple of 4) inside kStorage samples.
// The write position moves 4 samples per group; the oldest group sits at it.
struct ReverbRing {
    static constexpr int32_t kStorage = 131072;
    dsp::DelayLine line; // counts up, a group of 4 at a time

    float* Oldest() { return line.Data() + line.Position(); }
    void Advance() { line.Advance(4); }
    // Value written k - 4 samples before sample n of the group just written.
    float Tap(int32_t k, int32_t n) const {
        int32_t i = line.Position() + n - k;
        if (i < 0) i += line.Length();
        return line[i];
    }
};

// Pre-delay length in samples for a time value: trunc(time^2 * 131072),
// rounded down to a multiple of 4, at least 4.
int32_t ReverbPreDelayLength(float time);

struct PlateReverbState : EffectCore<kReverbParamCount> {
    enum Element {
        kP,
        kC1,
        kC2,
        kC3,
        kC4,
        kD1,
        kD2,
        kD3,
        kD4,
        kA1,
        kT1,
        kA2,
        kT2,
        kA3,
        kT3,
        kA4,
        kT4,
        kElementCount
    };
    ReverbRing ring[kElementCount];

    // Derived values.
    float damping = 0.0f;
    float bandwidth = 0.0f;
    float preForward = 0.0f;   // diffusion^3
    float preRecursion = 0.0f; // (0.9 feedback)^3
    float decayGain = 0.0f;

    float bandState = 0.0f; // input bandwidth filter
    float dampL = 0.0f;     // tank damping filters
    float dampR = 0.0f;
    float wetLevel = 0.0f;
    dsp::Smoother mix{0.02f};
};

// Allocates and clears the effect's memory and marks it ready (construction only).
void Init(PlateReverbState& state);
// Clears the effect's memory (all notes off).
void Reset(PlateReverbState& state);
int32_t Process(PlateReverbState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
