#pragma once
// Per-voice modulation matrix: forty routing slots from 28 sources to 48
// destinations.
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

inline constexpr int kMatrixSlots = 40;
inline constexpr int kRoutesPerDestination = 6;

// One route of a destination: the slot's source index and its amount and
// quantize values as stored.
struct MatrixRoute {
    uint32_t source = kNoSource;
    float amount = 0.0f;
    float quantize = 0.0f;
    float gain = 0.0f; // the amount through the curve
};

struct ModMatrixState {
    // Slot N owns values 4N..4N+3: src_N, dest_N, amount_N, quantize_N.
    ParamRecord<4 * kMatrixSlots> params;
    int32_t sourceCount = 0;
    int32_t destinationCount = 0;
    MatrixRoute routes[kDestinationCount][kRoutesPerDestination];
    uint32_t routeCount[kDestinationCount] = {};
    // Slots naming each source, ignored slots and source 0 included; read by
    // the block render's in-use test.
    uint32_t sourceUseCount[kSourceCount] = {};
    float quantizeSteps = 12.0f;
    // Destination buffers the matrix left holding zeros, and over how many
    // samples, so that an unrouted destination is not cleared again.
    const float* zeroBuffer[kDestinationCount] = {};
    int32_t zeroFrames[kDestinationCount] = {};
};

// Sizes the matrix (28 sources, 48 destinations).
void Init(ModMatrixState& state, int32_t sourceCount, int32_t destinationCount);
// Rebuilds the routes when a slot changed, then writes every destination sum.
int32_t Process(ModMatrixState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);
// Writes the source index of each of the destination's six route entries
// (kNoSource for an unused entry); leaves sources alone for an unknown destination.
uint32_t* SourcesOfDestination(const ModMatrixState& state, uint32_t sources[6],
                               uint32_t destination);

} // namespace Norvell::Vantor
