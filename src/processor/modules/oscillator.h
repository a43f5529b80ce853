#pragma once
// Voice oscillator: band-limited sawtooth, pulse, triangle and noise.
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

struct OscillatorState {
    ParamRecord<17> params;
    int32_t voiceIndex = -1;
    // Injected by the block render before every call.
    float fineTune = 0.0f;
    float voiceDetune = 0.0f;
    float voiceTranspose = 0.0f;
};

void Init(OscillatorState& state, int32_t voiceIndex);
int32_t Process(OscillatorState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx, bool runAnyway);

} // namespace Norvell::Vantor
