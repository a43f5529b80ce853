#include "processor/signalbank.h"

#include "basictools/logger/log.h"

#include <new>

namespace Norvell::Vantor {

float* SignalBank::Allocate() {
    float* buffer = new (std::align_val_t(16), std::nothrow) float[kBufferLength]();
    if (buffer == nullptr) {
        CLog::Locked()->Print("NULL Ptr on allocation\n");
        complete = false;
    } else {
        owned.push_back(buffer);
    }
    return buffer;
}

SignalBank::SignalBank() {
    owned.reserve(1100);
    ambientNoise = Allocate();
    vibratoOut = Allocate();
    vibratoTrigger = Allocate();
    modwheel = Allocate();
    pitchbend = Allocate();
    sustain = Allocate();
    expression = Allocate();
    aftertouch = Allocate();
    for (VoiceBuffers& v : voices) {
        for (float*& b : v.oscAudio) b = Allocate();
        for (auto& osc : v.oscMod)
            for (float*& b : osc) b = Allocate();
        v.oscSum = Allocate();
        for (float*& b : v.oscOut0) b = Allocate();
        for (float*& b : v.fmOut) b = Allocate();
        v.lag = Allocate();
        v.key = Allocate();
        v.velocity = Allocate();
        v.releaseVelocity = Allocate();
        v.filter = Allocate();
        for (float*& b : v.vca) b = Allocate();
        for (float*& b : v.destinations7to12) b = Allocate();
        v.unused = Allocate();
        for (float*& b : v.env) b = Allocate();
        for (auto& env : v.envMod)
            for (float*& b : env) b = Allocate();
        for (float*& b : v.lfoOut) b = Allocate();
        for (float*& b : v.lfoTrigger) b = Allocate();
        for (auto& lfo : v.lfoMod)
            for (float*& b : lfo) b = Allocate();
        for (float*& b : v.ramp) b = Allocate();
        for (float*& b : v.track) b = Allocate();
    }
    mixLeft = Allocate();
    mixRight = Allocate();
    for (int s = 0; s < 2; ++s) {
        slotLeft[s] = Allocate();
        slotRight[s] = Allocate();
    }
    finalLeft = Allocate();
    finalRight = Allocate();

    for (VoiceBuffers& v : voices) {
        float** src = v.sources;
        src[0] = nullptr;
        src[1] = modwheel;
        src[2] = pitchbend;
        src[3] = sustain;
        src[4] = expression;
        src[5] = vibratoOut;
        src[6] = v.key;
        src[7] = v.lag;
        src[8] = v.velocity;
        src[9] = v.releaseVelocity;
        src[10] = aftertouch;
        for (int k = 0; k < 5; ++k) src[11 + k] = v.env[k];
        for (int k = 0; k < 5; ++k) src[16 + k] = v.lfoOut[k];
        for (int k = 0; k < 3; ++k) src[21 + k] = v.track[k];
        for (int k = 0; k < 4; ++k) src[24 + k] = v.ramp[k];

        float** dst = v.destinations;
        dst[0] = nullptr;
        for (int k = 0; k < 2; ++k)
            for (int i = 0; i < 3; ++i) dst[1 + 3 * k + i] = v.oscMod[k][i];
        for (int i = 0; i < 6; ++i) dst[7 + i] = v.destinations7to12[i];
        for (int k = 0; k < 5; ++k)
            for (int i = 0; i < 5; ++i) dst[13 + 5 * k + i] = v.envMod[k][i];
        for (int k = 0; k < 5; ++k) {
            dst[38 + 2 * k] = v.lfoMod[k][0];
            dst[39 + 2 * k] = v.lfoMod[k][1];
        }
    }
}

SignalBank::~SignalBank() {
    for (float* buffer : owned) ::operator delete[](buffer, std::align_val_t(16));
}

} // namespace Norvell::Vantor
