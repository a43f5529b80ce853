#include "processor/modules/modmatrix.h"

namespace Norvell::Vantor {

void Init(ModMatrixState& state, int32_t sourceCount, int32_t destinationCount) {
    state.sourceCount = sourceCount;
    state.destinationCount = destinationCount;
}

int32_t Process(ModMatrixState& state, Inputs, uint64_t, Outputs, uint64_t, const ProcessContext&) {
    (void)state;
    return kProcessOk;
}

uint32_t* SourcesOfDestination(const ModMatrixState& state, uint32_t sources[6],
                               uint32_t destination) {
    (void)state;
    (void)destination;
    return sources;
}

} // namespace Norvell::Vantor
