#pragma once
// Lag processor: slews one chosen source (normally the key) for portamento,
// exponentially, linearly or in equal time whatever the distance.
#include "dsp/breakpointtable.h"
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

// Parameter positions, in binding order.
enum LagParam : uint32_t {
    kLagInputSelector,
    kLagRate,
    kLagIsLinear,
    kLagLegato,
    kLagEqualTime,
    kLagParamCount
};

// Glide times in seconds of the three modes, read with the rate position.
const dsp::BreakpointTable<64>& LagExponentialTable();
const dsp::BreakpointTable<64>& LagLinearTable();
const dsp::BreakpointTable<64>& LagEqualTimeTable();

struct LagState {
    ParamRecord<kLagParamCount> params;
    int32_t voiceIndex = -1;
    int32_t inputIndex = 0;
    int32_t selectableInputs = 28;
    uint8_t gateState = 0;
    uint8_t linearOn = 0;
    uint8_t equalTimeOn = 0;
    uint8_t legatoOn = 0;
    uint8_t phraseStart = 0; // the current note began while no key was held
    // The glide states accumulate tiny steps, so they are kept in double.
    double expState = 0.0;
    double linState = 0.0; // linear and equal-time modes
    float equalStep = 0.0f;
    float equalTarget = 0.0f;
    float equalDelta = 0.0f;
    float lastSampleRate = 0.0f;
    float invSampleRate = 0.0f;
    float linStep = 0.0f;
};

void Init(LagState& state, int32_t voiceIndex);
void RefreshParams(LagState& state);
// Inputs: the selected source (null for source 0), rate modulation. Output:
// the lag signal, 32 samples.
int32_t Process(LagState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
