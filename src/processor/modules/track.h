#pragma once
// Tracking generator: bends a modulation source through a five-point curve.
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

struct TrackState {
    ParamRecord<6> params;
    int32_t voiceIndex = -1;
    int32_t inputIndex = -1;
    int32_t selectableInputs = 28;
    uint8_t bipolar = 0; // set by the block render before each call
};

void Init(TrackState& state, int32_t voiceIndex);
int32_t Process(TrackState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
