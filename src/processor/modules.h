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
#include <span>

namespace Norvell::Vantor {

static_assert(InstancesOf(ModuleKind::Voice) == kVoiceCount);
static_assert(InstancesOf(ModuleKind::Zone) == kZoneCount);
static_assert(InstancesOf(ModuleKind::KeyRange) == kZoneCount);

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

    // The states of voice v's modules: vm.env[k] rather than envelopes[5 * v + k].
    struct VoiceView {
        std::span<OscillatorState, PerVoiceOf(ModuleKind::Oscillator)> osc;
        std::span<VcaState, PerVoiceOf(ModuleKind::Vca)> vca;
        std::span<EnvelopeState, PerVoiceOf(ModuleKind::Envelope)> env;
        std::span<LfoState, PerVoiceOf(ModuleKind::Lfo)> lfo;
        std::span<RampState, PerVoiceOf(ModuleKind::Ramp)> ramp;
        std::span<TrackState, PerVoiceOf(ModuleKind::Tracker)> tracker;
        FmAmountState& fm;
        VcfState& filter;
        LagState& lag;
        ModMatrixState& matrix;
    };
    VoiceView Voice(int v);

    // One state array per module type, sized by kModuleCounts.
    template <typename State, ModuleKind Kind>
    using States = std::array<State, static_cast<size_t>(InstancesOf(Kind))>;
    States<ParamRecord<8>, ModuleKind::Voice> voices;
    States<ParamRecord<2>, ModuleKind::Zone> zones;
    ParamRecord<16> master;
    States<ParamRecord<2>, ModuleKind::Note> notes;
    States<OscillatorState, ModuleKind::Oscillator> oscillators;
    States<FmAmountState, ModuleKind::FmAmount> fm;
    States<EnvelopeState, ModuleKind::Envelope> envelopes;
    VibratoState vibrato;
    States<TrackState, ModuleKind::Tracker> trackers;
    States<LfoState, ModuleKind::Lfo> lfos;
    States<VcaState, ModuleKind::Vca> vcas;
    States<LagState, ModuleKind::Lag> lags;
    States<RampState, ModuleKind::Ramp> ramps;
    States<VcfState, ModuleKind::Filter> filters;
    States<ModMatrixState, ModuleKind::Matrix> matrices;
    States<DualPhaserState, ModuleKind::Phaser> phasers;
    States<PlateReverbState, ModuleKind::Reverb> reverbs;
    States<StereoDelayState, ModuleKind::StereoDelay> delays;
    States<DubDelayState, ModuleKind::DubDelay> dubDelays;
    States<FlangerState, ModuleKind::Flanger> flangers;
    States<ChorusState, ModuleKind::Chorus> choruses;
    AmbientNoiseState ambientNoise;

private:
    struct Pristine;
    VoiceState& voiceState;
    std::unique_ptr<Pristine> pristine;
};

// Voice v's part of a per-voice state array.
template <ModuleKind Kind, typename State, size_t Count>
std::span<State, PerVoiceOf(Kind)> VoicePart(std::array<State, Count>& states, int v) {
    constexpr size_t perVoice = PerVoiceOf(Kind);
    return std::span<State, perVoice>(states.data() + static_cast<size_t>(v) * perVoice, perVoice);
}

inline VantorProcessor::Modules::VoiceView VantorProcessor::Modules::Voice(int v) {
    return {
        VoicePart<ModuleKind::Oscillator>(oscillators, v),
        VoicePart<ModuleKind::Vca>(vcas, v),
        VoicePart<ModuleKind::Envelope>(envelopes, v),
        VoicePart<ModuleKind::Lfo>(lfos, v),
        VoicePart<ModuleKind::Ramp>(ramps, v),
        VoicePart<ModuleKind::Tracker>(trackers, v),
        fm[static_cast<size_t>(v)],
        filters[static_cast<size_t>(v)],
        lags[static_cast<size_t>(v)],
        matrices[static_cast<size_t>(v)],
    };
}

} // namespace Norvell::Vantor
