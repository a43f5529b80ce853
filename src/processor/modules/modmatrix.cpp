#include "processor/modules/modmatrix.h"

#include "dsp/breakpointtable.h"

#include <algorithm>
#include <cmath>

namespace Norvell::Vantor {

namespace {

// Flat near zero so that amounts just off 0.5 stay almost silent.
const dsp::BreakpointTable<64> kAmountCurve =
    dsp::BreakpointTable<64>::FromBreakpoints({{0, 0.0f},
                                               {10, 0.016405897f},
                                               {15, 0.035481337f},
                                               {20, 0.055590425f},
                                               {25, 0.07498942f},
                                               {30, 0.096605085f},
                                               {35, 0.11614486f},
                                               {40, 0.13803843f},
                                               {45, 0.17179084f},
                                               {50, 0.2818383f},
                                               {55, 0.4954502f},
                                               {60, 0.76736146f},
                                               {63, 1.0f}});

// Signed gain of an amount value: 0.5 is silence, 1 gives +1, 0 gives -1,
// shaped by the amount curve in between.
float MatrixGain(float amount) {
    const float a = 2.0f * (amount - 0.5f);
    return a >= 0.0f ? kAmountCurve.Lookup(a) : -kAmountCurve.Lookup(-a);
}

void Derive(ModMatrixState& s) {
    for (int d = 0; d < kDestinationCount; ++d) {
        s.routeCount[d] = 0;
        for (MatrixRoute& route : s.routes[d]) route = MatrixRoute{};
    }
    for (uint32_t& use : s.sourceUseCount) use = 0;
    if (s.sourceCount < 1 || s.destinationCount < 1) return;

    for (int slot = 0; slot < kMatrixSlots; ++slot) {
        const float* v = &s.params.values[4 * slot];
        const int32_t src = StepIndex(v[0], static_cast<float>(s.sourceCount), s.sourceCount - 1);
        const int32_t dst =
            StepIndex(v[1], static_cast<float>(s.destinationCount), s.destinationCount - 1);
        // A seventh or later slot on one destination is dropped but still
        // counts as a use of its source.
        if (s.routeCount[dst] < kRoutesPerDestination)
            s.routes[dst][s.routeCount[dst]++] = {static_cast<uint32_t>(src), v[2], v[3],
                                                  MatrixGain(v[2])};
        ++s.sourceUseCount[src];
    }
}

} // namespace

void Init(ModMatrixState& state, int32_t sourceCount, int32_t destinationCount) {
    // Bounded by the route and use-count arrays.
    state.sourceCount = std::clamp(sourceCount, 0, kSourceCount);
    state.destinationCount = std::clamp(destinationCount, 0, kDestinationCount);
    Derive(state);
}

int32_t Process(ModMatrixState& state, Inputs in, uint64_t, Outputs out, uint64_t,
                const ProcessContext& ctx) {
    if (state.params.Refresh()) Derive(state);
    if (in == nullptr || out == nullptr) return kProcessMissing;

    // Destination buffers hold one block; the render never asks for more.
    const int frames = std::clamp(ctx.frameCount, 0, kBlockSize);
    const float steps = state.quantizeSteps;
    for (int d = 0; d < state.destinationCount; ++d) {
        float* dst = out[d];
        if (dst == nullptr) continue;
        if (state.zeroBuffer[d] != dst || state.zeroFrames[d] < frames) {
            std::fill(dst, dst + frames, 0.0f);
            state.zeroBuffer[d] = dst;
            state.zeroFrames[d] = frames;
        }
        for (uint32_t r = 0; r < state.routeCount[d]; ++r) {
            const MatrixRoute& route = state.routes[d][r];
            // The index test also rejects the empty-entry marker.
            if (route.source >= static_cast<uint32_t>(kSourceCount) || route.amount < 0.0f)
                continue;
            const float* x = in[route.source];
            if (x == nullptr) continue;
            state.zeroBuffer[d] = nullptr;
            state.zeroFrames[d] = 0;
            const float g = route.gain;
            if (route.quantize > 0.0f) {
                for (int n = 0; n < kBlockSize; ++n)
                    dst[n] += std::floor(steps * x[n] + 0.5f) / steps * g;
            } else {
                for (int n = 0; n < kBlockSize; ++n) dst[n] += x[n] * g;
            }
        }
    }
    return kProcessOk;
}

uint32_t* SourcesOfDestination(const ModMatrixState& state, uint32_t sources[6],
                               uint32_t destination) {
    if (destination >= static_cast<uint32_t>(state.destinationCount)) return sources;
    for (int r = 0; r < kRoutesPerDestination; ++r)
        sources[r] = state.routes[destination][r].source;
    return sources;
}

} // namespace Norvell::Vantor
