#pragma once
// What the six effect types share: the call checks (results 4 and 2), the
// ready flag, the parameter copies with change detection, and the decision to
// recompute derived values.
#include "dsp/dsputil.h"
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace Norvell::Vantor {

using dsp::FlushTiny;
using dsp::kTwoPi;

// 4 when the effect cannot run (not ready, no frames, no usable rate or
// tempo), 2 when an input or output pointer is missing, else 0.
inline int32_t CheckEffectCall(bool ready, Inputs in, Outputs out, const ProcessContext& ctx) {
    if (!ready || ctx.frameCount < 1 || !(ctx.sampleRate > 0.0f) || !(ctx.tempo > 0.0f))
        return kProcessUnusable;
    if (in == nullptr || out == nullptr || in[0] == nullptr || in[1] == nullptr ||
        out[0] == nullptr || out[1] == nullptr)
        return kProcessMissing;
    return kProcessOk;
}

// Common head of every effect state. N = number of parameters, in binding order.
template <size_t N> struct EffectCore {
    ParamRecord<N> params;
    bool ready = false;
    // Sample rate the derived values were computed for (0: not yet computed).
    float derivedRate = 0.0f;

    // Runs the call checks, then refreshes the parameter copies. On kProcessOk,
    // recompute tells whether the derived values are due: a parameter changed,
    // the first call, or a new sample rate. With clampToUnit the copies are held
    // to 0..1, for the effects whose formulas diverge outside it; a value held
    // out of range then reads as a change every block, which only costs a
    // recompute.
    int32_t Begin(Inputs in, Outputs out, const ProcessContext& ctx, bool& recompute,
                  bool clampToUnit = false) {
        const int32_t status = CheckEffectCall(ready, in, out, ctx);
        if (status != kProcessOk) return status;
        const bool changed = params.Refresh();
        if (changed && clampToUnit)
            for (float& value : params.values) value = std::clamp(value, 0.0f, 1.0f);
        recompute = changed || ctx.sampleRate != derivedRate;
        derivedRate = ctx.sampleRate;
        return kProcessOk;
    }

    // The next call recomputes its derived values (after a reset).
    void InvalidateDerived() { derivedRate = 0.0f; }
};

} // namespace Norvell::Vantor
