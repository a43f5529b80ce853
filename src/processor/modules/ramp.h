#pragma once
// Ramp: a straight rise from 0 to 1 after each note-on or trigger edge.
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

struct RampState {
    ParamRecord<5> params;
    int32_t voiceIndex = -1;
};

void Init(RampState& state, int32_t voiceIndex);
int32_t Process(RampState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
