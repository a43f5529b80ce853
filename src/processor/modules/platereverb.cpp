#include "processor/modules/platereverb.h"

namespace Norvell::Vantor {

void Init(PlateReverbState& state) {
    state.ready = true;
}
void Reset(PlateReverbState& state) {
    (void)state;
}

int32_t Process(PlateReverbState& state, Inputs, uint64_t, Outputs, uint64_t,
                const ProcessContext&) {
    (void)state;
    return kProcessUnusable;
}

} // namespace Norvell::Vantor
