#pragma once
// Voice filter with fifteen modes.
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

struct VcfState {
    ParamRecord<7> params;
    int32_t voiceIndex = -1;
    // Injected by the block render before every call.
    float fineTune = 0.0f;
    float voiceDetune = 0.0f;
    float voiceTranspose = 0.0f;
};

void Init(VcfState& state, int32_t voiceIndex);
int32_t Process(VcfState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx, bool runAnyway);

} // namespace Norvell::Vantor
