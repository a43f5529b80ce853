#pragma once
// FM amount: scales oscillator 2's auxiliary triangle into an FM signal.
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

struct FmAmountState {
    ParamRecord<3> params;
    int32_t voiceIndex = -1;
    float amount = 0.0f;
    float destination = 0.0f; // 0 routes FM to oscillator 1, anything else to the filter
};

void Init(FmAmountState& state, int32_t voiceIndex);
int32_t Process(FmAmountState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
