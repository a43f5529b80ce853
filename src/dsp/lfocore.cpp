#include "dsp/lfocore.h"

#include <cmath>

namespace Norvell::dsp {

const BreakpointTable<64>& LfoSpeedTable() {
    static const BreakpointTable<64> table = BreakpointTable<64>::FromBreakpoints({
        {0, 0.0373f},
        {10, 0.1625593f},
        {20, 0.5561735f},
        {30, 1.0710078f},
        {40, 1.7918899f},
        {50, 3.7022228f},
        {55, 5.555556f},
        {58, 8.277118f},
        {60, 11.410315f},
        {63, 27.59f},
    });
    return table;
}

void Softening::SetSampleRate(float rate) {
    if (rate == sampleRate) return;
    sampleRate = rate;
    const float samples = std::ceil(0.0249433f * rate);
    length = samples > 0.0f ? static_cast<uint32_t>(samples) : 0u;
    span = std::log(static_cast<float>(length) + 130.0f) - kLn130;
    scale = 1.0f / span;
}

} // namespace Norvell::dsp
