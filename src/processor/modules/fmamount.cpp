#include "processor/modules/fmamount.h"

namespace Norvell::Vantor {

void Init(FmAmountState& state, int32_t voiceIndex) {
    state.voiceIndex = voiceIndex;
    (void)state;
}

int32_t Process(FmAmountState& state, Inputs, uint64_t, Outputs, uint64_t, const ProcessContext&) {
    (void)state;
    return kProcessOk;
}

} // namespace Norvell::Vantor
