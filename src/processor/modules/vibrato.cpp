#include "processor/modules/vibrato.h"

namespace Norvell::Vantor {

void Init(VibratoState& state) {

    (void)state;
}

void RefreshParams(VibratoState& state) {
    (void)state;
}

int32_t Process(VibratoState& state, Inputs, uint64_t, Outputs, uint64_t, const ProcessContext&) {
    (void)state;
    return kProcessOk;
}

} // namespace Norvell::Vantor
