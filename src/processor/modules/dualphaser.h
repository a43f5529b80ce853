#pragma once
// Dual phaser (effect type 2): two five-stage phasers with saturating
// feedback, each swept by a sine or smoothed-random LFO, free or synced.
// Parallel mode: phaser 1 on the left, phaser 2 on the right. Dual (series)
// mode: the mono sum through phaser 1 then phaser 2 on both outputs.
#include "dsp/smoother.h"
#include "processor/modules/effectcommon.h"

#include <cstdint>

namespace Norvell::Vantor {

enum DualPhaserParam : size_t {
    kPhaserRate1,
    kPhaserRate1Synced, // held, not used: the synced division comes from rate1
    kPhaserFeedback1,
    kPhaserDepth1,
    kPhaserType1,
    kPhaserRate2,
    kPhaserRate2Synced, // held, not used
    kPhaserFeedback2,
    kPhaserDepth2,
    kPhaserType2,
    kPhaserMidiSync,
    kPhaserDualMode,
    kPhaserStereo,
    kPhaserDryWet,
    kPhaserParamCount
};

// Free LFO rate in Hz of a rate value.
float PhaserFreeRate(float v);
// Synced division of a rate value: -15..-2 (tempo / (60 |f|) Hz), 1 or 2.
int32_t PhaserSyncFactor(float v);

struct PhaserSection {
    float stage[5] = {};
    float fbMem = 0.0f;
    float a = 0.0f; // stage coefficients of this call
    float b = 1.0f;
    float corner = 520.0f; // Hz, this call's all-pass corner
    // LFO: sine phase, or the random generator with its two-pole smoother.
    float phase = 0.0f;
    uint32_t randomState = 0;
    float x1 = 0.0f, x2 = 0.0f, y1 = 0.0f, y2 = 0.0f;
    // Derived and per-call smoothed values.
    float freeRate = 0.001f;
    int32_t syncFactor = 1;
    float depthAmt = 0.0f;
    float fbAmt = 0.0f;
};

struct DualPhaserState : EffectCore<kPhaserParamCount> {
    PhaserSection section[2];
    float dual = 0.0f;
    float single = 1.0f;
    float stereoAmt = 0.0f;
    float fade = 0.0f; // feedback fade-in, 0 after a reset, rising to 1
    dsp::Smoother mix{0.04f};
};

// Clears the effect's state and marks it ready (construction only).
void Init(DualPhaserState& state);
// Clears the effect's state (all notes off).
void Reset(DualPhaserState& state);
int32_t Process(DualPhaserState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
