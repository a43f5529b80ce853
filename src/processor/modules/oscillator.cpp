#include "processor/modules/oscillator.h"

namespace Norvell::Vantor {

void Init(OscillatorState& state, int32_t voiceIndex) {
    state.voiceIndex = voiceIndex;
    (void)state;
}

int32_t Process(OscillatorState& state, Inputs, uint64_t, Outputs, uint64_t, const ProcessContext&,
                bool) {
    (void)state;
    return kProcessOk;
}

} // namespace Norvell::Vantor
