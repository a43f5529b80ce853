#pragma once
// Voice oscillator: band-limited sawtooth, pulse, triangle and noise.
// Sawtooth, pulse and the integrated square behind the triangle are made
// alias-free by spreading every discontinuity with a minimum-phase step table
// into 64-slot correction rings.
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstddef>
#include <cstdint>

namespace Norvell::Vantor {

// Parameter binding order.
enum OscillatorParam : size_t {
    kOscFreq = 0,
    kOscDetune,
    kOscPulseWidth,
    kOscVolume,
    kOscPulseOn,
    kOscSawOn,
    kOscTriangleOn,
    kOscNoiseOn,
    kOscSync,
    kOscLagOn,
    kOscMaster,
    kOscKeyboardFollow,
    kOscNoiseFmAmount,     // held only
    kOscNoiseFilterCutoff, // held only
    kOscSaw112FmAmount,    // held only
    kOscVibrato,
    kOscPitchbend,
    kOscParamCount
};

// Input positions.
enum OscillatorInput : size_t {
    kOscInPitch = 0,      // required
    kOscInPulseWidth = 1, // required
    kOscInVolume = 2,     // required
    kOscInSync = 3,       // read by the hard-sync core
    kOscInGlide = 4,      // read when lag_on
    kOscInVibrato = 5,    // required
    kOscInPitchbend = 6,  // required
    kOscInLinearFm = 7,   // optional
    kOscInJitter = 8,     // required (the ambient noise)
    kOscInFmActive = 9,   // optional
    kOscInputCount
};

inline constexpr int kStepTableLength = 2048;
inline constexpr int kStepOversampling = 64;
inline constexpr int kRingSize = 64;

// The minimum-phase band-limited unit step shared by all oscillators
// (kStepTableLength entries, kStepOversampling per output sample).
const float* StepTable();
// Adds the correction of a step of height h that happened d samples before
// the write slot to the 64-slot ring (rising or falling).
void InsertStep(float* ring, int32_t writeIndex, float d, float h, bool rising);
// Detune law: 0..1 -> 0..1, piecewise linear, flat around the centre.
float DetuneLaw(float x);
// Pulse-width law: 0..1 -> pulse threshold 0.0779..0.9835.
float PulseWidthLaw(float x);

// Oversampled triangle: phase at 4x rate and two half-band decimator stages
// (each keeps the last odd input for the next sample).
struct OversampledTriangle {
    float phase = 0.0f;
    float lastOdd1 = 0.0f;
    float lastOdd2 = 0.0f;
};

struct OscillatorState {
    ParamRecord<kOscParamCount> params;
    int32_t voiceIndex = -1;
    VoiceTuning tuning; // injected by the block render before every call

    // Derived from the parameters.
    bool sawOn = false;          // saw-on exactly 1.0
    bool pulseOn = false;        // pulse-on exactly 1.0
    bool triangleOn = false;     // triangle-on above 0.0
    bool fmTriangleOn = false;   // triangle-on not 0.0: a master's FM triangle replaces it
    bool noiseOn = false;        // noise-on exactly 1.0
    bool master = false;         // master exactly 1.0
    bool hardSync = false;       // sync exactly 1.0 on a non-master
    bool syncedTriangle = false; // sync above 0.0: the triangle is read from the ring as is
    float mappedDetune = 0.0f;
    float pulseBase = 0.5f;
    bool keyFollow = false;
    bool glideOn = false;
    bool bendOn = false;
    bool vibratoOn = false;

    // Derived from the sample rate (0 = not seen yet; the coefficients start
    // at 44.1 kHz so an inactive first call advances the phase finitely).
    float sampleRate = 0.0f;
    float invRate = 0.0f;
    float smooth10k = 0.0f;
    float triG = 0.0f;
    // Noise peaking filter (72 Hz).
    float b0 = 1.0f, b1 = 0.0f, b2 = 0.0f, a1 = 0.0f, a2 = 0.0f;

    // Pitch.
    float baseFreq = 440.0f;
    float staticFreq = 0.0f;
    float previousStaticFreq = 0.0f;
    float freqBuffer[kBlockSize] = {};

    // Waveform core.
    float phase = 1.0f;
    float pulseLevel = 0.5f;
    float squareLevel = 0.5f;
    float pulseThreshold = 0.5f;
    float sawRing[kRingSize] = {};
    float pulseRing[kRingSize] = {};
    float squareRing[kRingSize] = {};
    int32_t writeIndex = 0;
    float syncPulse[kBlockSize] = {};
    OversampledTriangle triangle;
    float fmTriangle[kBlockSize] = {};

    // Output stage.
    float triAcc = 0.0f;
    float triAccPrevious = 0.0f;
    float triBp = 0.0f;
    float triLp = 0.0f;
    float pulseSmooth = 0.0f;
    float noiseSmooth = 0.0f;
    float noiseX1 = 0.0f, noiseX2 = 0.0f, noiseY1 = 0.0f, noiseY2 = 0.0f;
    float humTable[kBlockSize] = {};
    float humPhase = 0.0f;
};

inline constexpr float kOscFmOutScale = 0.6f;

// Resets the state (keeping the parameter bindings), sets the voice and seeds
// the shared pseudo-random generator.
void Init(OscillatorState& state, int32_t voiceIndex);
// Outputs: 0 auxiliary (sync pulses of a master, else the scaled FM
// triangle), 1 audio. runAnyway renders a voice that is not active.
int32_t Process(OscillatorState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx, bool runAnyway);
// The call for a voice that is not active and not run anyway, equivalent to
// Process in two parts: Rest takes changed parameters and writes silence to
// audio, AdvanceResting then moves the phases of any number of resting
// oscillators on by one block at their base frequency, four at a time.
void Rest(OscillatorState& state, float* audio);
void AdvanceResting(OscillatorState* const* states, int count);

} // namespace Norvell::Vantor
