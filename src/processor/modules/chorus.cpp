#include "processor/modules/chorus.h"

namespace Norvell::Vantor {

void Init(ChorusState& state) {
    state.ready = true;
}
void Reset(ChorusState& state) {
    (void)state;
}

int32_t Process(ChorusState& state, Inputs, uint64_t, Outputs, uint64_t, const ProcessContext&) {
    (void)state;
    return kProcessUnusable;
}

} // namespace Norvell::Vantor
