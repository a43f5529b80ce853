#pragma once
// Dub delay (effect type 3).
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

struct DubDelayState {
    ParamRecord<6> params;
    bool ready = false;
};

// Allocates and clears the effect's memory and marks it ready (construction only).
void Init(DubDelayState& state);
// Clears the effect's memory (all notes off).
void Reset(DubDelayState& state);
int32_t Process(DubDelayState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
