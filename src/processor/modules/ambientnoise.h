#pragma once
// Looped ambient noise floor added to the mix and fed to the oscillators.
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

struct AmbientNoiseState {
    float sampleRate = 0.0f;
    const float* recording = nullptr;
    int32_t length = 0;
    int32_t position = 0;
};

void Init(AmbientNoiseState& state);
int32_t Process(AmbientNoiseState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
