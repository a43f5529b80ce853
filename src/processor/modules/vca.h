#pragma once
// Voltage-controlled amplifier: gain plus a smoothed level modulation,
// clamped to 0..1.
#include "dsp/dsputil.h"
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace Norvell::Vantor {

inline constexpr float kVcaSmoothing = 0.1003797f;

// One-pole smoothing of a 32-sample modulation block (shared with the FM
// amount module). A state that has decayed to almost nothing is snapped to 0
// so that it never lingers among the subnormals.
// A zero state fed a block of zeros stays exactly +0 throughout, so that
// case is written without the serial chain; the result is true then.
inline bool SmoothBlock(const float* x, float& state, float coefficient, float* smoothed) {
    if (state == 0.0f) {
        bool silent = true;
        for (int n = 0; n < kBlockSize; ++n) silent = silent && x[n] == 0.0f;
        if (silent) {
            std::fill_n(smoothed, kBlockSize, 0.0f);
            state = 0.0f;
            return true;
        }
    }
    float s = state;
    for (int n = 0; n < kBlockSize; ++n) {
        s += (x[n] - s) * coefficient;
        smoothed[n] = s;
    }
    state = dsp::FlushTiny(s);
    return false;
}

struct VcaState {
    ParamRecord<1> params; // gain
    float gain = 0.0f;     // copy of the gain value in use
    float smoothState = 0.0f;
    float smoothed[kBlockSize] = {}; // smoothed level modulation of the block
    bool smoothedSilent = true;      // every smoothed sample is +0
};

// Clears the smoother (keeping the parameter binding).
void Init(VcaState& state);
// Inputs: 0 signal, 1 level modulation. Always 32 samples.
int32_t Process(VcaState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
