#pragma once
// Chorus (effect type 5): one to three voices, each reading both lines at a
// delay swept exponentially by its own sine; a slow sine spreads the left and
// right delays apart.
#include "dsp/delayline.h"
#include "processor/modules/effectcommon.h"

#include <cstdint>

namespace Norvell::Vantor {

enum ChorusParam : size_t {
    kChorusType,
    kChorusRate,
    kChorusAmount,
    kChorusDelay,
    kChorusStereoWidth,
    kChorusStereoRate,
    kChorusDryWet,
    kChorusParamCount
};

// Voice count of a type value: 2 x type = 0 gives 1, exactly 1 gives 2, else 3.
int32_t ChorusVoiceCount(float type);

// A mirrored ring of kRing samples, so a read up to kRing samples back never
// wraps.
struct ChorusLine {
    static constexpr int32_t kRing = 192000;
    dsp::DelayLine store;

    void Push(float x) { store.Push(x); }
    // Quadratic read d samples behind the newest (through the samples
    // trunc(d), trunc(d) + 1 and trunc(d) + 2 behind it).
    float Read(float d) const;
};

struct ChorusState : EffectCore<kChorusParamCount> {
    // Derived values.
    int32_t voices = 1;
    float stereoRate = 0.0f; // Hz
    float sweepTarget = 0.0f;
    float delayTarget = 0.0f; // seconds
    float smooth = 1.0f;

    ChorusLine line[2];
    // Smoothed values.
    float mix = 0.0f;
    float sweep = 0.0f;
    float baseDelay = 0.0f;
    float width = 0.0f;
    // Phases (radians) of the stereo LFO and of the three voice LFOs.
    float stereoPhase = 0.0f;
    float voicePhase[3] = {0.0f, 0.0f, 0.0f};
};

// Allocates and clears the effect's memory and marks it ready (construction only).
void Init(ChorusState& state);
// Clears the effect's memory (all notes off).
void Reset(ChorusState& state);
int32_t Process(ChorusState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
