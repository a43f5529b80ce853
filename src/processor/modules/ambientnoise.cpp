#include "processor/modules/ambientnoise.h"

#include <cmath>
#include <numbers>
#include <random>

namespace Norvell::Vantor {
namespace {

// Gaussian white noise from a fixed seed, shifted to zero mean and scaled to
// the exact RMS in double precision.
AmbientRecording MakeRecording(float sampleRate, int32_t length, float rms, uint32_t seed) {
    std::mt19937 generator(seed);
    const auto uniform = [&generator] {
        return (static_cast<double>(generator()) + 0.5) / 4294967296.0; // 0 < u < 1
    };
    std::vector<double> noise(static_cast<size_t>(length));
    for (size_t i = 0; i < noise.size(); i += 2) {
        const double radius = std::sqrt(-2.0 * std::log(uniform()));
        const double angle = 2.0 * std::numbers::pi * uniform();
        noise[i] = radius * std::cos(angle);
        if (i + 1 < noise.size()) noise[i + 1] = radius * std::sin(angle);
    }
    double mean = 0.0;
    for (double x : noise) mean += x;
    mean /= static_cast<double>(noise.size());
    double power = 0.0;
    for (double& x : noise) {
        x -= mean;
        power += x * x;
    }
    const double scale = static_cast<double>(rms) / std::sqrt(power / static_cast<double>(length));

    AmbientRecording recording{sampleRate, rms, std::vector<float>(noise.size())};
    for (size_t i = 0; i < noise.size(); ++i)
        recording.samples[i] = static_cast<float>(noise[i] * scale);
    return recording;
}

} // namespace

const AmbientRecordingSet& AmbientRecordings() {
    static const AmbientRecordingSet recordings = {
        MakeRecording(192000.0f, 65536, 2e-4f, 0x56540001u),
        MakeRecording(176400.0f, 65536, 2e-4f, 0x56540002u),
        MakeRecording(96000.0f, 32768, 2e-4f, 0x56540003u),
        MakeRecording(88200.0f, 32768, 2e-4f, 0x56540004u),
        MakeRecording(48000.0f, 16384, 1e-4f, 0x56540005u),
        MakeRecording(44100.0f, 16384, 1e-4f, 0x56540006u), // and any other rate
    };
    return recordings;
}

const AmbientRecording& SelectAmbientRecording(const AmbientRecordingSet& set, float sampleRate) {
    for (int i = 0; i < kAmbientRecordingCount - 1; ++i)
        if (set[i].sampleRate == sampleRate) return set[i];
    return set[kAmbientRecordingCount - 1];
}

void Init(AmbientNoiseState& state) {
    state = AmbientNoiseState{};
    state.recordings = &AmbientRecordings();
}

int32_t Process(AmbientNoiseState& state, Inputs, uint64_t, Outputs out, uint64_t,
                const ProcessContext& ctx) {
    if (out == nullptr || out[0] == nullptr) return kProcessMissing;
    float* output = out[0];
    if (state.recordings == nullptr) {
        for (int n = 0; n < kBlockSize; ++n) output[n] = 0.0f;
        return kProcessUnusable;
    }
    if (ctx.sampleRate != state.sampleRate || state.recording == nullptr) {
        state.sampleRate = ctx.sampleRate;
        const AmbientRecording& chosen = SelectAmbientRecording(*state.recordings, ctx.sampleRate);
        state.recording = chosen.samples.data();
        state.length = static_cast<int32_t>(chosen.samples.size());
        state.position %= state.length;
    }
    for (int n = 0; n < kBlockSize; ++n) {
        output[n] = state.recording[state.position] * kAmbientNoiseGain;
        if (++state.position == state.length) state.position = 0;
    }
    return kProcessOk;
}

} // namespace Norvell::Vantor
