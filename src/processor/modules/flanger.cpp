#include "processor/modules/flanger.h"

namespace Norvell::Vantor {

void Init(FlangerState& state) {
    state.ready = true;
}
void Reset(FlangerState& state) {
    (void)state;
}

int32_t Process(FlangerState& state, Inputs, uint64_t, Outputs, uint64_t, const ProcessContext&) {
    (void)state;
    return kProcessUnusable;
}

} // namespace Norvell::Vantor
