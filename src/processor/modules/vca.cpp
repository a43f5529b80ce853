#include "processor/modules/vca.h"

namespace Norvell::Vantor {

void Init(VcaState& state) {

    (void)state;
}

int32_t Process(VcaState& state, Inputs, uint64_t, Outputs, uint64_t, const ProcessContext&) {
    (void)state;
    return kProcessOk;
}

} // namespace Norvell::Vantor
