#pragma once
// FM amount: scales oscillator 2's auxiliary triangle into an FM signal and
// flags whether any FM is applied.
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

inline constexpr float kFmSmoothing = 0.0067972755f;
inline constexpr float kFmScale = 0.38095238f; // 8/21
// Bit pattern of every activity sample while FM is active.
inline constexpr uint32_t kFmActiveBits = 0x01010101u;

// Parameter positions; the third slot has no name and nothing binds it.
enum FmAmountParam : uint32_t { kFmAmount, kFmDestination, kFmParamCount = 3 };

struct FmAmountState {
    ParamRecord<kFmParamCount> params;
    float smoothed[kBlockSize] = {}; // smoothed amount modulation of the block
    float destination = 0.0f;        // 0 routes FM to oscillator 1, anything else to the filter
    float smoothState = 0.0f;
    int32_t voiceIndex = -1;
    float laneSums[4] = {};
};

// Resets the state (keeping the parameter bindings) for voice voiceIndex.
void Init(FmAmountState& state, int32_t voiceIndex);
// Inputs: 0 oscillator 2's triangle, 1 amount modulation. Outputs: 0 FM
// signal, 1 activity signal. Outputs are left alone while the voice is idle.
int32_t Process(FmAmountState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
