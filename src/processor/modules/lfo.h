#pragma once
// Per-voice low-frequency oscillator.
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

struct LfoState {
    ParamRecord<9> params;
    int32_t voiceIndex = -1;
    int32_t inputIndex = -1; // source sampled by wave 6, -1 none
    int32_t selectableInputs = 28;
};

void Init(LfoState& state, int32_t voiceIndex);
int32_t Process(LfoState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
