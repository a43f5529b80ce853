#pragma once
// Delay-attack-decay-sustain-release envelope generator, driven by the
// voice's gate and trigger bits or by rising edges of an LFO trigger output.
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <bit>
#include <cstdint>

namespace Norvell::Vantor {

// Parameter order of the record.
enum EnvelopeParam : int {
    kEnvDelay,
    kEnvAttack,
    kEnvDecay,
    kEnvSustain,
    kEnvRelease,
    kEnvAmp,
    kEnvReset,
    kEnvFreerun,
    kEnvDadr,
    kEnvSingleTrig,
    kEnvLfoTrig,
    kEnvLfoId,
    kEnvGatedLfoTrig,
    kEnvParamCount
};

enum EnvelopeStage : uint32_t {
    kStageDelay = 0,
    kStageAttack = 1,
    kStageDecay = 2,
    kStageSustain = 3,
    kStageRelease = 4,
};

// Inputs 0..4 are the modulation destinations, 5..9 the LFO triggers, 10
// the vibrato trigger.
enum EnvelopeInput : int {
    kEnvInDelay,
    kEnvInAttack,
    kEnvInDecay,
    kEnvInRelease,
    kEnvInAmp,
    kEnvInFirstTrigger,
    kEnvInputCount = 11
};

// ln 200 and 200/199: after N samples an exponential segment has covered
// 199/200 of its span, which the scale stretches to the whole span.
inline constexpr float kSegmentCurve = std::bit_cast<float>(0x40A98BD3u);
inline constexpr float kSegmentScale = std::bit_cast<float>(0x3F80A4AAu);
inline constexpr float kFastFadeStep = 0.0078125f; // 1/128
inline constexpr float kFastFadeFloor = 1e-25f;

struct EnvelopeState {
    ParamRecord<kEnvParamCount> params;
    uint8_t segmentDone = 1;
    float segStart = 0.0f;
    float segTarget = 0.0f;
    float curveConstant = kSegmentCurve;
    // Double: a segment of tens of seconds moves progress by less than a
    // float step near its end and would never finish.
    double progress = 0.0;
    float curveScale = kSegmentScale;
    uint32_t stage = kStageDelay;
    uint32_t triggerIndex = 0xFFFFFFFFu;
    const float* triggerCursor = nullptr;
    double delayElapsed = 0.0; // seconds; double for the same reason as progress
    float level = 0.0f;
    float fastGain = 1.0f;
    float prevTriggerSample = 0.0f;
    uint8_t prevGate = 0;
    uint8_t releaseStartPending = 0;
    uint8_t fastRelease = 0;
    // A fast fade has ended; the next call restarts from the delay stage.
    uint8_t restartPending = 0;
    // The release reached zero; cleared by the voice's end-of-sound test.
    uint8_t finished = 0;
    uint8_t lfoTrigOn = 0;
    int32_t voiceIndex = -1;
    float attackHoldThreshold = 0.29f;
};

void Init(EnvelopeState& state, int32_t voiceIndex);
// 11 inputs, 1 output, always 32 samples.
int32_t Process(EnvelopeState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
