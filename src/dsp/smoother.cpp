#include "dsp/smoother.h"

#include <cmath>

namespace Norvell::dsp {

Smoother::Smoother(float timeSeconds) : time(timeSeconds) {
    SetSampleRate(44100.0f);
}

void Smoother::SetSampleRate(float sampleRate) {
    if (sampleRate == rate || !(sampleRate > 0.0f)) return;
    rate = sampleRate;
    const float c = 1.0f - std::exp(-1.0f / (time * rate));
    // Very long times round 1 - exp to 0; the first-order term keeps it positive.
    if (c > 0.0f && c <= 1.0f) {
        coefficient = c;
    } else {
        coefficient = c > 1.0f ? 1.0f : 1.0f / (time * rate);
    }
}

void Smoother::SetTarget(float value) {
    if (value == target) return;
    const float old = current;
    target = value;
    const float probe =
        std::fabs(old - value) >= threshold ? old + (value - old) * coefficient : value;
    const float step = std::fabs(probe - old);
    const float floor = kMinThreshold / coefficient * value;
    const float larger = step > floor ? step : floor;
    threshold = larger > kMinThreshold ? larger : kMinThreshold;
}

void Smoother::Jump(float value) {
    target = value;
    current = value;
    threshold = kMinThreshold;
}

} // namespace Norvell::dsp
