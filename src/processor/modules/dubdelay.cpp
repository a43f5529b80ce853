#include "processor/modules/dubdelay.h"

namespace Norvell::Vantor {

void Init(DubDelayState& state) {
    state.ready = true;
}
void Reset(DubDelayState& state) {
    (void)state;
}

int32_t Process(DubDelayState& state, Inputs, uint64_t, Outputs, uint64_t, const ProcessContext&) {
    (void)state;
    return kProcessUnusable;
}

} // namespace Norvell::Vantor
