#include "processor/modules/vcf.h"

namespace Norvell::Vantor {

void Init(VcfState& state, int32_t voiceIndex) {
    state.voiceIndex = voiceIndex;
    (void)state;
}

int32_t Process(VcfState& state, Inputs, uint64_t, Outputs, uint64_t, const ProcessContext&, bool) {
    (void)state;
    return kProcessOk;
}

} // namespace Norvell::Vantor
