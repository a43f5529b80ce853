#pragma once
// Flanger (effect type 4).
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

struct FlangerState {
    ParamRecord<5> params;
    bool ready = false;
};

// Allocates and clears the effect's memory and marks it ready (construction only).
void Init(FlangerState& state);
// Clears the effect's memory (all notes off).
void Reset(FlangerState& state);
int32_t Process(FlangerState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
