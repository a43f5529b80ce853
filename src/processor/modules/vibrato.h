#pragma once
// Global vibrato generator.
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

struct VibratoState {
    ParamRecord<8> params;
};

void Init(VibratoState& state);
// Run by the block render once per block before Process.
void RefreshParams(VibratoState& state);
int32_t Process(VibratoState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
