#pragma once
// Chorus (effect type 5).
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

struct ChorusState {
    ParamRecord<7> params;
    bool ready = false;
};

// Allocates and clears the effect's memory and marks it ready (construction only).
void Init(ChorusState& state);
// Clears the effect's memory (all notes off).
void Reset(ChorusState& state);
int32_t Process(ChorusState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
