#include "processor/modules/dualphaser.h"

namespace Norvell::Vantor {

void Init(DualPhaserState& state) {
    state.ready = true;
}
void Reset(DualPhaserState& state) {
    (void)state;
}

int32_t Process(DualPhaserState& state, Inputs, uint64_t, Outputs, uint64_t,
                const ProcessContext&) {
    (void)state;
    return kProcessUnusable;
}

} // namespace Norvell::Vantor
