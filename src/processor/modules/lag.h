#pragma once
// Lag processor: slews one source (portamento).
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

struct LagState {
    ParamRecord<5> params;
    int32_t voiceIndex = -1;
    int32_t inputIndex = 0;
    int32_t selectableInputs = 28;
};

void Init(LagState& state, int32_t voiceIndex);
int32_t Process(LagState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
