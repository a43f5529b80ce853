#include "processor/modules.h"

#include "basictools/logger/log.h"
#include "dsp/random.h"

#include <string_view>

namespace Norvell::Vantor {

// Copies of the module states as construction left them, for the resets.
struct VantorProcessor::Modules::Pristine {
    OscillatorState oscillator[2];
    FmAmountState fm;
    EnvelopeState envelope;
    VibratoState vibrato;
    TrackState tracker;
    LfoState lfo;
    VcaState vca;
    LagState lag;
    RampState ramp;
    VcfState filter;
    ModMatrixState matrix;
};

namespace {
// Puts state back to its pristine copy but keeps what the registry and the
// host set: the bindings, the current values and the state's voice.
template <typename State> void Restore(State& state, const State& pristine) {
    const auto params = state.params;
    int32_t voice = -1;
    if constexpr (requires { state.voiceIndex; }) voice = state.voiceIndex;
    state = pristine;
    state.params = params;
    state.params.refreshPending = true;
    if constexpr (requires { state.voiceIndex; }) state.voiceIndex = voice;
}
} // namespace

VantorProcessor::Modules::Modules(VoiceState& state) : voiceState(state) {
    dsp::SeedRandom(dsp::ConstructionSeed());
    VANTOR_LOG("audio_engine", LOG_DEBUG,
               "CTOR VantorProcessor Modules"
                   << "modules"
                   << ":" << 193 << " [ "
                   << "Norvell::Vantor::VantorProcessor::Modules::Modules"
                   << " ] ");
    for (int v = 0; v < kVoiceCount; ++v) {
        const VoiceView vm = Voice(v);
        for (OscillatorState& osc : vm.osc) Init(osc, v);
        for (VcaState& vca : vm.vca) Init(vca);
        Init(vm.fm, v);
        Init(vm.filter, v);
        Init(vm.lag, v);
        Init(vm.matrix, kSourceCount, kDestinationCount);
        for (EnvelopeState& env : vm.env) Init(env, v);
        for (LfoState& lfo : vm.lfo) Init(lfo, v);
        for (RampState& ramp : vm.ramp) Init(ramp, v);
        for (TrackState& tracker : vm.tracker) Init(tracker, v);
    }
    Init(vibrato);
    Init(ambientNoise);
    for (int s = 0; s < 2; ++s) {
        Init(phasers[s]);
        Init(reverbs[s]);
        Init(delays[s]);
        Init(dubDelays[s]);
        Init(flangers[s]);
        Init(choruses[s]);
    }
    // Voice 0's states stand for every voice: only the voice index differs.
    pristine = std::make_unique<Pristine>();
    pristine->oscillator[0] = oscillators[0];
    pristine->oscillator[1] = oscillators[1];
    pristine->fm = fm[0];
    pristine->envelope = envelopes[0];
    pristine->vibrato = vibrato;
    pristine->tracker = trackers[0];
    pristine->lfo = lfos[0];
    pristine->vca = vcas[0];
    pristine->lag = lags[0];
    pristine->ramp = ramps[0];
    pristine->filter = filters[0];
    pristine->matrix = matrices[0];
}

void VantorProcessor::Modules::ResetVoiceChain(int v) {
    const Pristine& p = *pristine;
    const VoiceView vm = Voice(v);
    // Restore keeps each state's voice index.
    for (int k = 0; k < 2; ++k) Restore(vm.osc[k], p.oscillator[k]);
    for (VcaState& vca : vm.vca) Restore(vca, p.vca);
    Restore(vm.fm, p.fm);
    Restore(vm.filter, p.filter);
    Restore(vm.lag, p.lag);
    Restore(vm.matrix, p.matrix);
    for (EnvelopeState& env : vm.env) Restore(env, p.envelope);
    for (LfoState& lfo : vm.lfo) Restore(lfo, p.lfo);
    for (RampState& ramp : vm.ramp) Restore(ramp, p.ramp);
    for (TrackState& tracker : vm.tracker) Restore(tracker, p.tracker);
}

void VantorProcessor::Modules::ResetControllers() {
    Restore(vibrato, pristine->vibrato);
}

VantorProcessor::Modules::~Modules() {
    VANTOR_LOG("audio_engine", LOG_DEBUG,
               "DTOR VantorProcessor Modules"
                   << "modules"
                   << ":" << 196 << " [ "
                   << "Norvell::Vantor::VantorProcessor::Modules::~Modules"
                   << " ] ");
}

void VantorProcessor::Modules::ResetEffects() {
    for (int s = 0; s < 2; ++s) {
        Reset(phasers[s]);
        Reset(reverbs[s]);
        Reset(delays[s]);
        Reset(dubDelays[s]);
        Reset(flangers[s]);
        Reset(choruses[s]);
    }
}

namespace {
// Binding slots of one element of a state array or of an array of bare records.
template <typename Array> ParamSlots SlotsIn(Array& states, int instance) {
    if (instance < 0 || static_cast<size_t>(instance) >= states.size())
        return {0, nullptr, nullptr};
    auto& state = states[static_cast<size_t>(instance)];
    if constexpr (requires { state.params; })
        return state.params.Slots();
    else
        return state.Slots();
}
} // namespace

ParamSlots VantorProcessor::Modules::SlotsOf(const ModuleTypeInfo& type, int instance) {
    switch (type.kind) {
    case ModuleKind::Voice: return SlotsIn(voices, instance);
    case ModuleKind::Zone: return SlotsIn(zones, instance);
    case ModuleKind::Master:
        return instance == 0 ? master.Slots() : ParamSlots{0, nullptr, nullptr};
    case ModuleKind::Note: return SlotsIn(notes, instance);
    case ModuleKind::Oscillator: return SlotsIn(oscillators, instance);
    case ModuleKind::FmAmount: return SlotsIn(fm, instance);
    case ModuleKind::Envelope: return SlotsIn(envelopes, instance);
    case ModuleKind::Vibrato:
        return instance == 0 ? vibrato.params.Slots() : ParamSlots{0, nullptr, nullptr};
    case ModuleKind::Tracker: return SlotsIn(trackers, instance);
    case ModuleKind::Lfo: return SlotsIn(lfos, instance);
    case ModuleKind::Vca: return SlotsIn(vcas, instance);
    case ModuleKind::Lag: return SlotsIn(lags, instance);
    case ModuleKind::Ramp: return SlotsIn(ramps, instance);
    case ModuleKind::Filter: return SlotsIn(filters, instance);
    case ModuleKind::Matrix: return SlotsIn(matrices, instance);
    case ModuleKind::KeyRange:
        if (instance < 0 || instance >= kZoneCount) return {0, nullptr, nullptr};
        return voiceState.zones[instance].range.Slots();
    case ModuleKind::Phaser: return SlotsIn(phasers, instance);
    case ModuleKind::Reverb: return SlotsIn(reverbs, instance);
    case ModuleKind::StereoDelay: return SlotsIn(delays, instance);
    case ModuleKind::DubDelay: return SlotsIn(dubDelays, instance);
    case ModuleKind::Flanger: return SlotsIn(flangers, instance);
    case ModuleKind::Chorus: return SlotsIn(choruses, instance);
    }
    return {0, nullptr, nullptr};
}

} // namespace Norvell::Vantor
