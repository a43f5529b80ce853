#pragma once
// Per-voice low-frequency oscillator: triangle, square, rising and falling
// saw, random steps at the LFO rate, fast random steps and sample and hold
// of a modulation source. Output 0 is the LFO signal, output 1 a trigger
// signal for the envelopes and ramps.
#include "dsp/lfocore.h"
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

// Parameter positions, in binding order.
enum LfoParam : uint32_t {
    kLfoSpeed,
    kLfoWave,
    kLfoInputSelector,
    kLfoRetrigPoint,
    kLfoAmp,
    kLfoLag,
    kLfoRetrigMode,
    kLfoSync,
    kLfoSyncedSpeed,
    kLfoParamCount
};

// The `wave` parameter times 6, truncated.
enum class LfoWave : uint32_t {
    Triangle,
    Square,
    RisingSaw,
    FallingSaw,
    RandomSteps,     // a new random value at the LFO rate
    FastRandomSteps, // a new random value every kLfoFastRandomPeriod
    SampleAndHold,   // the selected source, sampled at the LFO rate
};

// Period of the fast random steps (about 141.84 steps per second).
inline constexpr float kLfoFastRandomPeriod = 0.0070501976f;

// Tempo divisions in cycles per beat / 60: rate in Hz = entry * tempo.
inline constexpr float kLfoTempoDivisions[13] = {
    1.0f / 240.0f, 1.0f / 180.0f, 1.0f / 120.0f, 1.0f / 90.0f, 1.0f / 80.0f,
    1.0f / 60.0f,  1.0f / 45.0f,  1.0f / 40.0f,  1.0f / 30.0f, 1.0f / 20.0f,
    1.0f / 15.0f,  2.0f / 15.0f,  4.0f / 15.0f};

// Replaces a saw's jump of about 1.0 at the cycle end by a 32-sample ramp.
struct LfoSlew {
    float previous = 0.0f;
    float held = 0.0f;
    float step = 0.0f;
    uint32_t counter = 0;
    uint8_t active = 0;
};

// Sample and hold of the selected source.
struct LfoHold {
    double timer = 0.0;
    float value = 0.0f;
    float previous = 0.0f; // the output averages the last two held values
};

struct LfoState {
    ParamRecord<kLfoParamCount> params;
    // Derived from the parameters.
    LfoWave wave = LfoWave::Triangle;
    bool syncOn = false;     // rate from the tempo divisions
    bool softened = false;   // lag exactly 1.0: edges and random steps softened
    float retrigMode = 0.0f; // 2 * retrig_mode: 0 free, 1 only after a gap, else always
    int32_t inputIndex = -1; // source sampled and held, -1 none
    int32_t selectableInputs = 28;

    // Per-sample rate of the current block: Hz for the periodic waves,
    // seconds per step for the random steps and the sample and hold.
    float rateHz[kBlockSize] = {};
    float periodSeconds[kBlockSize] = {};
    float amplitude[kBlockSize] = {}; // kept while no amplitude input is connected
    float lastSampleRate = 0.0f;
    float invSampleRate = 0.0f;
    dsp::PeriodicShape shape;
    dsp::Softening softening;
    LfoHold hold;
    dsp::RandomSteps randomSteps;
    dsp::RandomSteps fastRandomSteps;
    dsp::RandomGlide random;
    LfoSlew slew[3]; // square, rising saw, falling saw
    int32_t voiceIndex = -1;
    uint8_t prevGate = 0;
};

// Resets the state (keeping the parameter bindings) for voice voiceIndex.
void Init(LfoState& state, int32_t voiceIndex);
// Takes changed parameter values; the block render calls it before reading
// inputIndex.
void RefreshParams(LfoState& state);
// Inputs: speed modulation, amplitude modulation, the source sampled by the
// sample and hold. Outputs: LFO signal, trigger signal. Always 32 samples.
int32_t Process(LfoState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

// Process in parts, for LFOs run together across voices. Prepare does the
// per-block work before the wave (parameters, retrigger, amplitude, rates);
// an LFO for which InLanes holds then runs its wave through ProcessInLanes,
// which gives each LFO exactly what Process gives it.
void Prepare(LfoState& state, const float* speedMod, const float* ampMod,
             const ProcessContext& ctx);
bool InLanes(const LfoState& state);
void ProcessInLanes(LfoState* const* states, float* const* out0, float* const* out1, int count);

} // namespace Norvell::Vantor
