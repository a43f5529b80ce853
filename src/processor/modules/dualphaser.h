#pragma once
// Dual phaser (effect type 2).
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

struct DualPhaserState {
    ParamRecord<14> params;
    bool ready = false;
};

// Allocates and clears the effect's memory and marks it ready (construction only).
void Init(DualPhaserState& state);
// Clears the effect's memory (all notes off).
void Reset(DualPhaserState& state);
int32_t Process(DualPhaserState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
