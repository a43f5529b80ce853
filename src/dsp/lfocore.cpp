#include "dsp/lfocore.h"

#include "dsp/random.h"

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

float Softening::Curve(uint32_t j) const {
    const float rise = std::log(static_cast<float>(j) + 130.0f) - kLn130;
    return form == Form::Scaled ? rise * scale : rise / span;
}

void StepPeriodic(PeriodicShape& s, double increment, bool soften, const Softening& softening,
                  SquareFall fall) {
    s.phase += increment;
    if (s.phase > 0.5) {
        s.phase = -0.5;
        s.softenCounter = 0;
    }
    const float p = static_cast<float>(s.phase);
    s.phaseOut = p;
    s.fallingSawValue = -p;
    if (p >= 0.0f) {
        s.squareValue = 0.5f;
        s.triangleValue = 0.5f - 2.0f * p;
        if (s.firstHalfPending != 0) {
            s.softenCounter = 0;
            s.firstHalfPending = 0;
        }
        if (soften && s.softenCounter < softening.length) {
            s.squareValue = 0.5f * softening.Curve(s.softenCounter);
            ++s.softenCounter;
        }
    } else {
        s.squareValue = 0.0f;
        s.triangleValue = 2.0f * p + 0.5f;
        if (soften && s.softenCounter < softening.length) {
            const float c = softening.Curve(s.softenCounter);
            ++s.softenCounter;
            s.fallingSawValue = -p * c;
            s.squareValue = fall.base + fall.slope * c;
            s.phaseOut = std::fabs(c - 1.0f) * 0.5f + p;
        }
        s.firstHalfPending = 1;
    }
}

float DrawRandomStep() {
    return static_cast<float>(NextRandom() % 16385) / 16385.0f - 0.5f;
}

bool StepRandom(RandomSteps& steps, RandomGlide& glide, float period, double timeStep) {
    if (steps.timer >= static_cast<double>(period)) {
        glide.oldRandom = steps.value;
        steps.value = DrawRandomStep();
        steps.timer = 0.0;
        glide.counter = 0;
        return true;
    }
    steps.timer += timeStep;
    return false;
}

float GlideRandom(RandomGlide& glide, float value, bool soften, const Softening& softening) {
    if (soften && glide.counter < softening.length) {
        const float c = softening.Curve(glide.counter);
        ++glide.counter;
        glide.randomOut = glide.oldRandom >= value
                              ? std::fabs(c - 1.0f) * (glide.oldRandom - value) + value
                              : value * c;
    } else {
        glide.randomOut = value;
    }
    return glide.randomOut;
}

} // namespace Norvell::dsp
