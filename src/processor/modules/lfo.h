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

struct LfoState {
    ParamRecord<kLfoParamCount> params;
    float rate[kBlockSize] = {};      // Hz for waves 0 to 3, period in s for 4 and 6
    float amplitude[kBlockSize] = {}; // kept while no amplitude input is connected
    float lastSampleRate = 0.0f;
    float invSampleRate = 0.0f;
    float speedValue = 0.0f;
    float retrigPoint = 0.0f;
    float ampValue = 0.0f;
    float lagValue = 0.0f;
    float retrigModeValue = 0.0f; // 2 * retrig_mode
    float syncedSpeedValue = 0.0f;
    dsp::PeriodicShape shape;
    dsp::Softening softening;
    double wave6Timer = 0.0;
    float wave6Held = 0.0f;
    float wave6PrevHeld = 0.0f;
    dsp::RandomSteps wave4;
    dsp::RandomSteps wave5;
    dsp::RandomGlide random;
    LfoSlew slew[3]; // waves 1, 2, 3
    uint32_t wave = 0;
    int32_t voiceIndex = -1;
    int32_t inputIndex = -1; // source sampled by wave 6, -1 none
    int32_t selectableInputs = 28;
    uint8_t syncOn = 0;
    uint8_t prevGate = 0;
};

void Init(LfoState& state, int32_t voiceIndex);
// Copies changed parameter values and recomputes the derived ones.
void RefreshParams(LfoState& state);
// Inputs: speed modulation, amplitude modulation, the source sampled by
// wave 6. Outputs: LFO signal, trigger signal. Always 32 samples.
int32_t Process(LfoState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
