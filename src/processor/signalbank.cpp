#include "processor/signalbank.h"

#include "basictools/logger/log.h"
#include "processor/routing.h"

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
        src[kSrcNone] = nullptr;
        src[kSrcModwheel] = modwheel;
        src[kSrcPitchbend] = pitchbend;
        src[kSrcSustain] = sustain;
        src[kSrcExpression] = expression;
        src[kSrcVibrato] = vibratoOut;
        src[kSrcKey] = v.key;
        src[kSrcLag] = v.lag;
        src[kSrcVelocity] = v.velocity;
        src[kSrcReleaseVelocity] = v.releaseVelocity;
        src[kSrcAftertouch] = aftertouch;
        for (int k = 0; k < 5; ++k) src[EnvSource(k)] = v.env[k];
        for (int k = 0; k < 5; ++k) src[LfoSource(k)] = v.lfoOut[k];
        for (int t = 0; t < 3; ++t) src[TrackSource(t)] = v.track[t];
        for (int r = 0; r < 4; ++r) src[RampSource(r)] = v.ramp[r];

        float** dst = v.destinations;
        dst[kDstNone] = nullptr;
        for (int k = 0; k < 2; ++k)
            for (int i = 0; i < 3; ++i) dst[OscDst(k, i)] = v.oscMod[k][i];
        for (int i = 0; i < 6; ++i) dst[kDstVcfCutoff + i] = v.destinations7to12[i];
        for (int k = 0; k < 5; ++k)
            for (int i = 0; i < 5; ++i) dst[EnvDst(k, i)] = v.envMod[k][i];
        for (int k = 0; k < 5; ++k) {
            dst[LfoSpeedDst(k)] = v.lfoMod[k][0];
            dst[LfoAmpDst(k)] = v.lfoMod[k][1];
        }
    }
}

SignalBank::~SignalBank() {
    for (float* buffer : owned) ::operator delete[](buffer, std::align_val_t(16));
}

} // namespace Norvell::Vantor
