#pragma once
// Plate reverb (effect type 6).
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

struct PlateReverbState {
    ParamRecord<8> params;
    bool ready = false;
};

// Allocates and clears the effect's memory and marks it ready (construction only).
void Init(PlateReverbState& state);
// Clears the effect's memory (all notes off).
void Reset(PlateReverbState& state);
int32_t Process(PlateReverbState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
