#pragma once
// Tracking generator: bends one modulation source of its voice through a
// five-point curve, bipolar (-0.5..0.5) or unipolar (0..1).
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

// Parameter positions, in binding order.
enum TrackParam : uint32_t {
    kTrackPoint1,
    kTrackPoint2,
    kTrackPoint3,
    kTrackPoint4,
    kTrackPoint5,
    kTrackInputSelector,
    kTrackParamCount
};

// Source index of the mod wheel, which the sources carry at half scale.
inline constexpr int32_t kTrackModWheelSource = 1;

struct TrackState {
    ParamRecord<kTrackParamCount> params;
    int32_t voiceIndex = -1;
    int32_t inputIndex = -1; // computed at the first refresh
    int32_t selectableInputs = 28;
    uint8_t bipolar = 0; // set by the block render before each call
    float inputScale = 1.0f;
};

// Resets the state (keeping the parameter bindings) for voice voiceIndex.
void Init(TrackState& state, int32_t voiceIndex);
void RefreshParams(TrackState& state);
// Inputs: the voice's 28 modulation sources in source order. Output: the
// tracked signal, frameCount samples. 4 when an input sample is out of range
// (the samples before it have been written).
int32_t Process(TrackState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
