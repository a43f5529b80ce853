#pragma once
// What the voice LFOs and the global vibrato generator share: the free speed
// table, the edge-softening curve, the periodic phase step and the random
// step.
#include "dsp/breakpointtable.h"
#include "dsp/fastmath.h"

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
    float Curve(uint32_t j) const;
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
void StepPeriodic(PeriodicShape& shape, double increment, bool soften, const Softening& softening,
                  SquareFall fall);

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
float DrawRandomStep();

// One sample of the step timer: once the timer has reached `period` a new
// value is drawn, the timer and the glide restart and the result is true;
// otherwise the timer advances by `timeStep`.
bool StepRandom(RandomSteps& steps, RandomGlide& glide, float period, double timeStep);

// The value to output: a softened move to the current step while the glide
// runs (a fall from the old value or a rise from 0), else the step itself.
float GlideRandom(RandomGlide& glide, float value, bool soften, const Softening& softening);

} // namespace Norvell::dsp
