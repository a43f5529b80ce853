#pragma once
// What every module process operation receives, and the shape of that call.
#include <cstdint>

namespace Norvell::Vantor {

struct VoiceState;

inline constexpr int kBlockSize = 32;
// A block of zeros for inputs nothing is connected to.
inline constexpr float kSilentBlock[kBlockSize] = {};
inline constexpr int kVoiceCount = 12;
inline constexpr int kSourceCount = 28;
inline constexpr int kDestinationCount = 48;
inline constexpr uint32_t kNoSource = 0xFFFFFFFFu;

struct ProcessContext {
    float tempo = 120.0f;
    float sampleRate = 44100.0f;
    int32_t frameCount = 0;
    VoiceState* voiceState = nullptr;
};

// Master fine tune and the voice's detune and transpose, copied into both
// oscillators and the filter of a voice before every call.
struct VoiceTuning {
    float fineTune = 0.0f;
    float voiceDetune = 0.0f;
    float voiceTranspose = 0.0f;
};

// Module process operation: (state, inputs, count, outputs, output count,
// context) -> status. A null input means "not connected". Status 0 success,
// 2 a required pointer is missing, 4 not ready or an unusable input.
using Inputs = float* const*;
using Outputs = float* const*;

enum ProcessStatus : int32_t { kProcessOk = 0, kProcessMissing = 2, kProcessUnusable = 4 };

} // namespace Norvell::Vantor
