#pragma once
// Ramp: a straight rise from 0 to 1 after each note-on or accepted trigger
// edge, then a hold at 1. An inactive voice's ramp is held at 0.
#include "dsp/breakpointtable.h"
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

// Parameter positions, in binding order.
enum RampParam : uint32_t {
    kRampRate,
    kRampRetrigMode,
    kRampLfoTrigOn,
    kRampLfoTrigId,
    kRampGated,
    kRampParamCount
};

// Rise times in seconds, 0.006 to 36.41, read with the `rate` position.
const dsp::BreakpointTable<64>& RampTimeTable();

struct RampState {
    ParamRecord<kRampParamCount> params{{0.0f, 1.0f, 0.0f, 0.0f, 1.0f}};
    float rampTime = 0.0f; // seconds
    double level = 0.0;    // double so that the slowest rises keep their time
    float prevTriggerSample = 0.0f;
    int32_t voiceIndex = -1;
    uint32_t triggerIndex = 0; // 0 to 4 the voice's LFOs, 5 the vibrato
    uint8_t gateState = 0;
    uint8_t gatedOn = 0;
    uint8_t singleTrigger = 0; // a note-on while the gate is open does not restart
    uint8_t lfoTrigOn = 0;
};

// Also runs the first parameter refresh, so the derived values never keep
// their constructor defaults.
void Init(RampState& state, int32_t voiceIndex);
void RefreshParams(RampState& state);
// Inputs: the trigger outputs of the voice's five LFOs, then the vibrato
// trigger. Output: the ramp signal, frameCount samples.
int32_t Process(RampState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
