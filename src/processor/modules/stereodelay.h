#pragma once
// Stereo delay (effect type 1).
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

struct StereoDelayState {
    ParamRecord<12> params;
    bool ready = false;
};

// Allocates and clears the effect's memory and marks it ready (construction only).
void Init(StereoDelayState& state);
// Clears the effect's memory (all notes off).
void Reset(StereoDelayState& state);
int32_t Process(StereoDelayState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
