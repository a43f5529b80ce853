#pragma once
// Voltage-controlled amplifier.
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

struct VcaState {
    ParamRecord<1> params;
    float gain = 0.0f; // copy of the gain value in use
};

void Init(VcaState& state);
int32_t Process(VcaState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
