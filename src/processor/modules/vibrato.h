#pragma once
// Global vibrato generator: an LFO with six waves whose speed and amplitude
// can follow the mod wheel, the sustain pedal or aftertouch. Output 0 is the
// vibrato signal, output 1 a trigger signal (the periodic waves' phase).
#include "dsp/lfocore.h"
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

// Parameter positions, in binding order.
enum VibratoParam : uint32_t {
    kVibSpeed,
    kVibSpeedSrc,
    kVibSpeedMod,
    kVibWave,
    kVibAmp,
    kVibAmpSrc,
    kVibAmpMod,
    kVibLag,
    kVibParamCount
};

// Rate of the fast random steps, Hz.
inline constexpr float kVibratoFastRandomRate = 141.84f;

struct VibratoState {
    ParamRecord<kVibParamCount> params;
    float waveSelect = 0.0f;     // wave * 5; exactly 4.0 and 5.0 are the random waves
    float speedModAmount = 0.0f; // 2 * speed_mod - 1
    float ampModAmount = 0.0f;   // 2 * amp_mod - 1
    float ampSource = 0.0f;      // amp_src * 3; exactly 1, 2 or 3 picks an input
    float speedSource = 0.0f;    // speed_src * 3
    dsp::PeriodicShape shape;
    dsp::RandomSteps steps;     // wave 4
    dsp::RandomSteps fastSteps; // wave 5
    dsp::RandomGlide random;
    dsp::Softening softening;
};

void Init(VibratoState& state);
// Run by the block render once per block before Process: takes changed
// parameters and derives from them.
void RefreshParams(VibratoState& state);
// Inputs: mod wheel, sustain pedal, aftertouch. Outputs: vibrato signal,
// trigger signal. Always 32 samples.
int32_t Process(VibratoState& state, Inputs in, uint64_t count, Outputs out, uint64_t outCount,
                const ProcessContext& ctx);

} // namespace Norvell::Vantor
