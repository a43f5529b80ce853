#include "processor/modules/lag.h"

namespace Norvell::Vantor {

void Init(LagState& state, int32_t voiceIndex) {
    state.voiceIndex = voiceIndex;
    (void)state;
}

int32_t Process(LagState& state, Inputs, uint64_t, Outputs, uint64_t, const ProcessContext&) {
    (void)state;
    return kProcessOk;
}

} // namespace Norvell::Vantor
