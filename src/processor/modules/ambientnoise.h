#pragma once
// Looped ambient noise floor added to the mix and fed to the oscillators.
#include "processor/processcontext.h"

#include <array>
#include <cstdint>
#include <vector>

namespace Norvell::Vantor {

// One looped recording: white noise of exactly zero mean and the given RMS.
struct AmbientRecording {
    float sampleRate; // the rate it is made for
    float rms;
    std::vector<float> samples;
};

inline constexpr int kAmbientRecordingCount = 6;
inline constexpr float kAmbientNoiseGain = 0.13f;

using AmbientRecordingSet = std::array<AmbientRecording, kAmbientRecordingCount>;

// The six recordings (192000, 176400, 96000, 88200, 48000 and any other
// rate), generated on first use from fixed seeds and shared read-only.
const AmbientRecordingSet& AmbientRecordings();
// The recording played at a sample rate (exact comparison).
const AmbientRecording& SelectAmbientRecording(const AmbientRecordingSet& set, float sampleRate);

struct AmbientNoiseState {
    float sampleRate = 0.0f;
    const float* recording = nullptr;
    int32_t length = 0;
    int32_t position = 0;
    // Set by Init; the recordings are never generated on the render thread.
    const AmbientRecordingSet* recordings = nullptr;
};

void Init(AmbientNoiseState& state);
// Writes 32 samples to output 0 whatever the frame count.
int32_t Process(AmbientNoiseState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
