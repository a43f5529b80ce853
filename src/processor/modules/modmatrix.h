#pragma once
// Per-voice modulation matrix: forty routing slots from 28 sources to 48
// destinations.
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

struct ModMatrixState {
    ParamRecord<160> params;
    int32_t sourceCount = 0;
    int32_t destinationCount = 0;
    uint32_t sourceUseCount[kSourceCount] = {};
};

// Sizes the matrix (28 sources, 48 destinations).
void Init(ModMatrixState& state, int32_t sourceCount, int32_t destinationCount);
int32_t Process(ModMatrixState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);
// Writes the source index of each of the destination's six route entries
// (kNoSource for an unused entry); leaves sources alone for an unknown destination.
uint32_t* SourcesOfDestination(const ModMatrixState& state, uint32_t sources[6],
                               uint32_t destination);

} // namespace Norvell::Vantor
