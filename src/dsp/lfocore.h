#pragma once
// What the voice LFOs and the global vibrato generator share: the free speed
// table, the edge-softening curve, the periodic phase step and the random
// step. The per-sample steps live here so that they inline into the loops.
#include "dsp/breakpointtable.h"
#include "dsp/fastmath.h"
#include "dsp/random.h"

#include <cmath>
#include <cstdint>

namespace Norvell::dsp {

// Free LFO rates in Hz, 0.0373 to 27.59, read with a position 0..1.
const BreakpointTable<64>& LfoSpeedTable();

// ln 130, as the softening curve takes it.
inline constexpr float kLn130 = 4.8675346f;

// Edge softening: c(j) rises from 0 to 1 along a logarithmic curve over
// `length` samples (about 25 ms) after a restart at j = 0.
struct Softening {
    // The LFO multiplies by the reciprocal of the span, the vibrato divides.
    enum class Form : uint8_t { Scaled, Divided };

    Form form = Form::Scaled;
    float sampleRate = 0.0f;
    uint32_t length = 0; // ceil(0.0249433 * sample rate)
    float span = 1.0f;   // ln(length + 130) - ln 130
    float scale = 1.0f;  // 1 / span

    // Recomputes length, span and scale when the rate differs.
    void SetSampleRate(float rate);
    float Curve(uint32_t j) const {
        const float rise = std::log(static_cast<float>(j) + 130.0f) - kLn130;
        return form == Form::Scaled ? rise * scale : rise / span;
    }
};

// Phase and the four shapes of the periodic waves. The phase runs from -0.5
// to 0.5 and is kept in double so that the slowest rates still advance.
struct PeriodicShape {
    double phase = -0.5;
    float squareValue = 0.0f;
    float triangleValue = 0.0f;
    float phaseOut = 0.0f;
    float fallingSawValue = 0.0f;
    uint32_t softenCounter = 0;
    uint8_t firstHalfPending = 0;
};

// Square value while the first half is softened: base + slope * c.
struct SquareFall {
    float base;
    float slope;
};

// One sample: advances the phase by `increment` (wrapping to exactly -0.5
// past 0.5) and recomputes the shapes, softened when `soften` is set.
inline void StepPeriodic(PeriodicShape& s, double increment, bool soften,
                         const Softening& softening, SquareFall fall) {
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

// A random-step wave: its own timer and current value.
struct RandomSteps {
    double timer = 0.0;
    float value = 0.0f;
};

// Softening of the random steps, shared between the random waves of a
// generator.
struct RandomGlide {
    float oldRandom = 0.0f;
    float randomOut = 0.0f;
    uint32_t counter = 0;
};

// Next step value from the shared generator: (r mod 16385) / 16385 - 0.5.
inline float DrawRandomStep() {
    return static_cast<float>(NextRandom() % 16385) / 16385.0f - 0.5f;
}

// One sample of the step timer: once the timer has reached `period` a new
// value is drawn, the timer and the glide restart and the result is true;
// otherwise the timer advances by `timeStep`.
inline bool StepRandom(RandomSteps& steps, RandomGlide& glide, float period, double timeStep) {
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

// The value to output: a softened move to the current step while the glide
// runs (a fall from the old value or a rise from 0), else the step itself.
inline float GlideRandom(RandomGlide& glide, float value, bool soften, const Softening& softening) {
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
