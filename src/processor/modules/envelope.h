#pragma once
// Delay-attack-decay-sustain-release envelope generator.
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

struct EnvelopeState {
    ParamRecord<13> params;
    int32_t voiceIndex = -1;
    uint8_t finished = 0;
    uint8_t restartPending = 0;
};

void Init(EnvelopeState& state, int32_t voiceIndex);
int32_t Process(EnvelopeState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
