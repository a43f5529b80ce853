#include "processor/modules/envelope.h"

namespace Norvell::Vantor {

void Init(EnvelopeState& state, int32_t voiceIndex) {
    state.voiceIndex = voiceIndex;
    (void)state;
}

int32_t Process(EnvelopeState& state, Inputs, uint64_t, Outputs, uint64_t, const ProcessContext&) {
    (void)state;
    return kProcessOk;
}

} // namespace Norvell::Vantor
