#include "processor/modules/ambientnoise.h"

namespace Norvell::Vantor {

void Init(AmbientNoiseState& state) {
    (void)state;
}

int32_t Process(AmbientNoiseState& state, Inputs, uint64_t, Outputs, uint64_t,
                const ProcessContext&) {
    (void)state;
    return kProcessOk;
}

} // namespace Norvell::Vantor
