#pragma once
// Voice filter with fifteen modes. Thirteen modes mix the four pole outputs of
// a driven one-pole cascade with saturating resonance feedback, run twice per
// sample; two modes run a pair of state-variable sections with gain shaping.
#include "dsp/breakpointtable.h"
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstddef>
#include <cstdint>

namespace Norvell::Vantor {

// Parameter positions, in binding order.
enum VcfParam : size_t {
    kVcfCutoff = 0,
    kVcfRes = 1,
    kVcfType = 2,
    kVcfKeyboardFollow = 3,
    kVcfLag = 4,
    kVcfPitchbend = 5,
    kVcfVibrato = 6,
    kVcfParamCount = 7
};

// Input positions of the process call.
enum VcfInput : size_t {
    kVcfInAudio = 0,
    kVcfInCutoffMod = 1,
    kVcfInResMod = 2,
    kVcfInVibrato = 3,
    kVcfInPitchbend = 4,
    kVcfInLag = 5,
    kVcfInFm = 6,
    kVcfInputCount = 7
};

inline constexpr int32_t kVcfModeCount = 15;
// The two modes built from state-variable sections instead of the cascade.
inline constexpr int32_t kVcfModeTwinSvfTracked = 9;
inline constexpr int32_t kVcfModeTwinSvfSpread = 10;
// The mode that adds a leak of the unfiltered input.
inline constexpr int32_t kVcfModeLowpass18Leak = 2;

// Compensation and output tables are read on a real index 0..23.
using VcfTable = dsp::BreakpointTable<24>;

// Trapezoidal state-variable section on u = v + previous v:
// y = highpass + gLow * lowpass + gBand * bandpass.
struct VcfSection {
    float g = 0.0f;
    float k = 0.0f;
    float d = 1.0f; // 1 / ((g + k) g + 1)
    float gLow = 0.0f;
    float gBand = 0.0f;
    float prevIn = 0.0f;
    float bp = 0.0f;
    float lp = 0.0f;
};

struct VcfState {
    ParamRecord<kVcfParamCount> params;
    int32_t voiceIndex = -1;
    VoiceTuning tuning; // injected by the block render before every call

    int32_t mode = 0; // selected by `type`; loaded at the end of the block it changes in

    float keyFreq = 0.0f;
    // sampleRate 0 means not seen yet; invRate and resSmooth hold 44.1 kHz
    // values until the first call so nothing can divide by zero.
    float sampleRate = 0.0f;
    float invRate = 0.0f;
    float resSmooth = 0.0f;

    float cutoffState = 1000.0f;
    float resState = 0.0f;
    float resModState = 0.0f;

    // Per-sample preparation of the current block (cutoffHz and cutoffNorm
    // are read by the next block's resonance step).
    float cutoffHz[kBlockSize] = {};
    float cutoffNorm[kBlockSize] = {};
    float resValue[kBlockSize] = {};
    float feedbackGain[kBlockSize] = {};

    // The loaded mode.
    int32_t loadedMode = 0;
    bool firstPoleIsInput = false; // the first tap carries the driven input itself
    float tapMix[4] = {};          // weights of the four pole outputs
    float outputGain = 0.0f;
    float resCompensation = 0.0f; // output loss per unit of resonance
    const VcfTable* feedbackScale = nullptr;
    float invFeedbackScaleFirst = 1.0f;
    const VcfTable* outputShape = nullptr; // null when the mode has none

    // Cascade.
    float pole[4] = {};
    float prevPole4 = 0.0f;
    float feedbackAvg = 0.0f;

    VcfSection leak;     // leak mode
    VcfSection svfFirst; // state-variable modes
    VcfSection svfSecond;

    bool modePending = true;
    float resGate = 1.0f;

    // Input pointers taken over from the last call that connected them.
    const float* cutoffMod = nullptr;
    float* resMod = nullptr; // smoothed in place
    const float* vibratoIn = nullptr;
    const float* bendIn = nullptr;
    const float* lagIn = nullptr;
    const float* fmIn = nullptr;
};

// Resets the filter and keeps its parameter bindings.
void Init(VcfState& state, int32_t voiceIndex);
// Inputs as VcfInput; output 0: 32 filtered samples.
int32_t Process(VcfState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx, bool runAnyway);

// One voice's filter call, for running the filters of several voices at once.
struct VcfCall {
    VcfState* state;
    Inputs in;
    Outputs out;
    bool runAnyway;
};
// Same states and outputs as Process on each call in turn: the cascades of
// the voices run side by side, four to an SSE2 register, lane by lane.
void ProcessVoices(const VcfCall* calls, int count, const ProcessContext& ctx);

} // namespace Norvell::Vantor
