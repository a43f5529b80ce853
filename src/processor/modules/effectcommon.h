#pragma once
// What the six effect types share: the call checks (results 4 and 2), the
// ready flag, the parameter copies with change detection, and the decision to
// recompute derived values (each effect's Derive).
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

// Begin holds every control to 0..1 unless told a single one.
inline constexpr size_t kAllControls = SIZE_MAX;

// Common head of every effect state. N = number of parameters, in binding order.
template <size_t N> struct EffectCore {
    ParamRecord<N> params;
    bool ready = false;
    // Sample rate the derived values were computed for (0: not yet computed).
    float derivedRate = 0.0f;

    // The head of every Process call: the call checks, then the parameter
    // refresh. derive(self, sampleRate) runs when a parameter changed, on the
    // first call, after InvalidateDerived and at a new sample rate. The
    // controls are held to 0..1 first (only unitControl when one is named),
    // for formulas that diverge outside it; a value held out of range then
    // reads as a change every block, which only costs a recompute.
    template <typename Self, typename DeriveFn>
    int32_t Begin(Self& self, Inputs in, Outputs out, const ProcessContext& ctx, DeriveFn derive,
                  size_t unitControl = kAllControls) {
        const int32_t status = CheckEffectCall(ready, in, out, ctx);
        if (status != kProcessOk) return status;
        const bool changed = params.Refresh();
        if (changed) HoldToUnit(unitControl);
        const bool newRate = ctx.sampleRate != derivedRate;
        derivedRate = ctx.sampleRate;
        if (changed || newRate) derive(self, ctx.sampleRate);
        return kProcessOk;
    }

    // The next call recomputes its derived values (after a reset).
    void InvalidateDerived() { derivedRate = 0.0f; }

private:
    void HoldToUnit(size_t unitControl) {
        for (size_t i = 0; i < N; ++i)
            if (unitControl == kAllControls || i == unitControl)
                params.values[i] = std::clamp(params.values[i], 0.0f, 1.0f);
    }
};

} // namespace Norvell::Vantor
