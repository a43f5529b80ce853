#pragma once
// The module registry: one fixed array of states per module type, and the
// binding of engine parameters to module parameters by name.
#include "processor/modules/ambientnoise.h"
#include "processor/modules/chorus.h"
#include "processor/modules/dualphaser.h"
#include "processor/modules/dubdelay.h"
#include "processor/modules/envelope.h"
#include "processor/modules/flanger.h"
#include "processor/modules/fmamount.h"
#include "processor/modules/lag.h"
#include "processor/modules/lfo.h"
#include "processor/modules/modmatrix.h"
#include "processor/modules/oscillator.h"
#include "processor/modules/platereverb.h"
#include "processor/modules/ramp.h"
#include "processor/modules/stereodelay.h"
#include "processor/modules/track.h"
#include "processor/modules/vca.h"
#include "processor/modules/vcf.h"
#include "processor/modules/vibrato.h"
#include "processor/moduletypes.h"
#include "processor/paramrecord.h"
#include "processor/vantorprocessor.h"

#include <array>
#include <memory>

namespace Norvell::Vantor {

// Indices of the master parameters in the master record.
enum MasterParam : size_t {
    kMasterVolume,
    kMasterFineTune,
    kMasterPanic,
    kMasterPitchbend,
    kMasterModwheel,
    kMasterAftertouch,
    kMasterPedalSustain,
    kMasterPedalExpression,
    kMasterAllNotesOff,
    kMasterEffect0Selector,
    kMasterEffect0Active,
    kMasterEffect1Selector,
    kMasterEffect1Active,
    kMasterPresetLoading,
    kMasterPresetMode,
    kMasterSustainHold,
};

enum VoiceParam : size_t {
    kVoiceIsEnable,
    kVoiceIsOn,
    kVoiceVolume,
    kVoicePan,
    kVoiceDetune,
    kVoiceTranspose,
    kVoiceZone,
    kVoiceOutput,
};

enum ZoneParam : size_t { kZonePlayMode, kZoneEnableSteal };
enum NoteParam : size_t { kNoteNote, kNoteColor };

class VantorProcessor::Modules {
public:
    explicit Modules(VoiceState& voiceState);
    ~Modules();
    Modules(const Modules&) = delete;
    Modules& operator=(const Modules&) = delete;

    // Binding slots of one instance; count 0 when the instance does not exist.
    ParamSlots SlotsOf(const ModuleTypeInfo& type, int instance);
    // Clears both instances of every effect type.
    void ResetEffects();
    // Returns the running state of every module of voice v to its state at
    // construction; bindings and parameter values stay, and derived values
    // are recomputed at the next block.
    void ResetVoiceChain(int v);
    // The same for the vibrato, the one controller with running state.
    void ResetControllers();

    std::array<ParamRecord<8>, kVoiceCount> voices;
    std::array<ParamRecord<2>, kZoneCount> zones;
    ParamRecord<16> master;
    std::array<ParamRecord<2>, 128> notes;
    std::array<OscillatorState, 24> oscillators;
    std::array<FmAmountState, 12> fm;
    std::array<EnvelopeState, 60> envelopes;
    VibratoState vibrato;
    std::array<TrackState, 36> trackers;
    std::array<LfoState, 60> lfos;
    std::array<VcaState, 24> vcas;
    std::array<LagState, 12> lags;
    std::array<RampState, 48> ramps;
    std::array<VcfState, 12> filters;
    std::array<ModMatrixState, 12> matrices;
    std::array<DualPhaserState, 2> phasers;
    std::array<PlateReverbState, 2> reverbs;
    std::array<StereoDelayState, 2> delays;
    std::array<DubDelayState, 2> dubDelays;
    std::array<FlangerState, 2> flangers;
    std::array<ChorusState, 2> choruses;
    AmbientNoiseState ambientNoise;

private:
    struct Pristine;
    VoiceState& voiceState;
    std::unique_ptr<Pristine> pristine;
};

} // namespace Norvell::Vantor
