#pragma once
// Owner of every sample buffer of the engine and of each voice's tables of
// modulation sources and destinations.
#include "processor/processcontext.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Norvell::Vantor {

inline constexpr size_t kBufferLength = 2048;

struct VoiceBuffers {
    float* oscAudio[2];
    float* oscMod[2][3];
    float* oscSum;
    float* oscOut0[2];
    float* fmOut[2];
    float* lag;
    float* key;
    float* velocity;
    float* releaseVelocity;
    float* filter;
    float* vca[2];
    float* destinations7to12[6];
    float* unused;
    float* env[5];
    float* envMod[5][5];
    float* lfoOut[5];
    float* lfoTrigger[5];
    float* lfoMod[5][2];
    float* ramp[4];
    float* track[3];
    // Fixed pointer tables of the routing matrix; entry 0 of each is null.
    float* sources[kSourceCount];
    float* destinations[kDestinationCount];
};

struct ControllerValues {
    float modwheel = 0.0f;
    float pitchbend = 0.5f;
    float aftertouch = 0.0f;
    float sustain = 0.0f;
    float expression = 0.0f;
};

class SignalBank {
public:
    SignalBank();
    ~SignalBank();
    SignalBank(const SignalBank&) = delete;
    SignalBank& operator=(const SignalBank&) = delete;

    // False when a buffer could not be allocated; rendering is then skipped.
    bool Complete() const { return complete; }

    float* ambientNoise;
    float* vibratoOut;
    float* vibratoTrigger;
    float* modwheel;
    float* pitchbend;
    float* sustain;
    float* expression;
    float* aftertouch;
    float* mixLeft;
    float* mixRight;
    float* slotLeft[2];
    float* slotRight[2];
    float* finalLeft;
    float* finalRight;
    VoiceBuffers voices[kVoiceCount];

    ControllerValues controllers;
    float keyValue[kVoiceCount] = {};
    float velocityCurrent[kVoiceCount] = {};
    float velocityTarget[kVoiceCount] = {};
    float releaseVelocityCurrent[kVoiceCount] = {};
    float releaseVelocityTarget[kVoiceCount] = {};

private:
    float* Allocate();
    std::vector<float*> owned;
    bool complete = true;
};

} // namespace Norvell::Vantor
