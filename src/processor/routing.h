#pragma once
// Names of the modulation sources and destinations of a voice, the indices of
// its routing tables, and the input positions of the modules whose headers
// do not name their own.
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

// Modulation sources, one table of kSourceCount per voice.
enum ModSource : int32_t {
    kSrcNone = 0,
    kSrcModwheel = 1,
    kSrcPitchbend = 2,
    kSrcSustain = 3,
    kSrcExpression = 4,
    kSrcVibrato = 5,
    kSrcKey = 6,
    kSrcLag = 7,
    kSrcVelocity = 8,
    kSrcReleaseVelocity = 9,
    kSrcAftertouch = 10,
    kSrcEnv1 = 11,   // envelopes 1..5: kSrcEnv1 + k
    kSrcLfo1 = 16,   // LFOs 1..5: kSrcLfo1 + k
    kSrcTrack1 = 21, // tracking generators 1..3: kSrcTrack1 + t
    kSrcRamp1 = 24,  // ramps 1..4: kSrcRamp1 + r
};
static_assert(kSrcRamp1 + 4 == kSourceCount);

inline constexpr int32_t EnvSource(int k) {
    return kSrcEnv1 + k;
}
inline constexpr int32_t LfoSource(int k) {
    return kSrcLfo1 + k;
}
inline constexpr int32_t TrackSource(int t) {
    return kSrcTrack1 + t;
}
inline constexpr int32_t RampSource(int r) {
    return kSrcRamp1 + r;
}
inline constexpr bool IsEnvelopeSource(uint32_t s) {
    return s >= kSrcEnv1 && s < kSrcEnv1 + 5;
}
// Sources swinging around 0 rather than from 0 upwards.
inline constexpr bool IsBipolarSource(int32_t s) {
    return s == kSrcPitchbend || s == kSrcVibrato || (s >= kSrcLfo1 && s < kSrcLfo1 + 5);
}

// Modulation destinations, one table of kDestinationCount per voice.
enum ModDestination : int32_t {
    kDstNone = 0,
    kDstOsc1Pitch = 1, // oscillator k's pitch, pulse width, volume: + 3 k
    kDstOsc1PulseWidth = 2,
    kDstOsc1Volume = 3,
    kDstVcfCutoff = 7,
    kDstVcfRes = 8,
    kDstVca1Level = 9,
    kDstVca2Level = 10,
    kDstFmAmount = 11,
    kDstLagRate = 12,
    kDstEnv1Delay = 13, // envelope k's delay, attack, decay, release, amplitude: + 5 k
    kDstLfo1Speed = 38, // LFO k's speed and amplitude: + 2 k
    kDstLfo1Amp = 39,
};
static_assert(kDstLfo1Speed + 2 * 5 == kDestinationCount);

// Oscillator k's modulation input i (pitch, pulse width, volume).
inline constexpr int32_t OscDst(int k, int i) {
    return kDstOsc1Pitch + 3 * k + i;
}
inline constexpr int32_t EnvDst(int k, int i) {
    return kDstEnv1Delay + 5 * k + i;
}
inline constexpr int32_t LfoSpeedDst(int k) {
    return kDstLfo1Speed + 2 * k;
}
inline constexpr int32_t LfoAmpDst(int k) {
    return kDstLfo1Amp + 2 * k;
}
inline constexpr int32_t VcaLevelDst(int k) {
    return kDstVca1Level + k;
}

// Input positions of the VCA, the FM amount module, the lag and the LFO.
enum VcaInput : int { kVcaInSignal = 0, kVcaInLevel = 1, kVcaInputCount = 2 };
enum FmInput : int { kFmInSignal = 0, kFmInAmount = 1, kFmInputCount = 2 };
enum LagInput : int { kLagInSource = 0, kLagInRate = 1, kLagInputCount = 2 };
enum LfoInput : int { kLfoInSpeed = 0, kLfoInAmp = 1, kLfoInSource = 2, kLfoInputCount = 3 };
// Ramps and envelopes take the five LFO triggers of the voice, then the
// vibrato trigger.
inline constexpr int kTriggerInputCount = 6;

} // namespace Norvell::Vantor
