#include "processor/modules/stereodelay.h"

namespace Norvell::Vantor {

void Init(StereoDelayState& state) {
    state.ready = true;
}
void Reset(StereoDelayState& state) {
    (void)state;
}

int32_t Process(StereoDelayState& state, Inputs, uint64_t, Outputs, uint64_t,
                const ProcessContext&) {
    (void)state;
    return kProcessUnusable;
}

} // namespace Norvell::Vantor
