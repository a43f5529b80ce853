#pragma once
// Voice filter with fifteen modes. Thirteen modes mix the four taps of a
// driven one-pole cascade with saturating resonance feedback, run twice per
// sample; modes 9 and 10 run two state-variable sections with gain shaping.
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

inline constexpr int32_t kVcfModeCount = 15;

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

    // Derived from the parameters.
    float cutoffTarget = 1000.0f;
    float resTarget = 0.0f;
    int32_t mode = 0;
    bool keyFollow = false;
    bool lagOn = false;
    bool vibratoOn = false;
    bool bendOn = false;

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
    float cutoffControl[kBlockSize] = {};
    float cutoffHz[kBlockSize] = {};
    float cutoffNorm[kBlockSize] = {};
    float resValue[kBlockSize] = {};
    float feedbackGain[kBlockSize] = {};

    // The loaded mode.
    int32_t loadedMode = 0;
    int32_t inputTap = 0;
    float c1 = 0.0f;
    float c2 = 0.0f;
    float c3 = 0.0f;
    float c4 = 0.0f;
    float outputGain = 0.0f;      // G
    float resCompensation = 0.0f; // R
    const VcfTable* t1 = nullptr;
    const VcfTable* t2 = nullptr;
    const VcfTable* t3 = nullptr; // null when the mode has none
    float invT1First = 1.0f;

    // Cascade.
    float s1 = 0.0f;
    float s2 = 0.0f;
    float s3 = 0.0f;
    float s4 = 0.0f;
    float prevS4 = 0.0f;
    float fbAvg = 0.0f;

    VcfSection leak;     // mode 2
    VcfSection section1; // modes 9 and 10
    VcfSection section2;

    float fmScale = 7.0f;
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

void Init(VcfState& state, int32_t voiceIndex);
// Inputs: 0 audio (required), 1 cutoff modulation, 2 resonance modulation,
// 3 vibrato, 4 pitch bend, 5 lag, 6 FM. Output 0: 32 filtered samples.
int32_t Process(VcfState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx, bool runAnyway);

} // namespace Norvell::Vantor
