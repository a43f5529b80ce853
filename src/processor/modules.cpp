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
// host set: the bindings, the current values and the voice the copy was
// made for.
template <typename State> void Restore(State& state, const State& pristine) {
    const auto params = state.params;
    state = pristine;
    state.params = params;
    state.params.refreshPending = true;
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
        for (int k = 0; k < 2; ++k) {
            Init(oscillators[2 * v + k], v);
            Init(vcas[2 * v + k]);
        }
        Init(fm[v], v);
        Init(filters[v], v);
        Init(lags[v], v);
        Init(matrices[v], kSourceCount, kDestinationCount);
        for (int k = 0; k < 5; ++k) {
            Init(envelopes[5 * v + k], v);
            Init(lfos[5 * v + k], v);
        }
        for (int k = 0; k < 4; ++k) Init(ramps[4 * v + k], v);
        for (int k = 0; k < 3; ++k) Init(trackers[3 * v + k], v);
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
    for (int k = 0; k < 2; ++k) {
        Restore(oscillators[2 * v + k], p.oscillator[k]);
        oscillators[2 * v + k].voiceIndex = v;
        Restore(vcas[2 * v + k], p.vca);
    }
    Restore(fm[v], p.fm);
    fm[v].voiceIndex = v;
    Restore(filters[v], p.filter);
    filters[v].voiceIndex = v;
    Restore(lags[v], p.lag);
    lags[v].voiceIndex = v;
    Restore(matrices[v], p.matrix);
    for (int k = 0; k < 5; ++k) {
        Restore(envelopes[5 * v + k], p.envelope);
        envelopes[5 * v + k].voiceIndex = v;
        Restore(lfos[5 * v + k], p.lfo);
        lfos[5 * v + k].voiceIndex = v;
    }
    for (int k = 0; k < 4; ++k) {
        Restore(ramps[4 * v + k], p.ramp);
        ramps[4 * v + k].voiceIndex = v;
    }
    for (int k = 0; k < 3; ++k) {
        Restore(trackers[3 * v + k], p.tracker);
        trackers[3 * v + k].voiceIndex = v;
    }
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
template <typename Array> ParamSlots SlotsIn(Array& states, int instance) {
    if (instance < 0 || static_cast<size_t>(instance) >= states.size())
        return {0, nullptr, nullptr};
    return states[static_cast<size_t>(instance)].params.Slots();
}
template <typename Array> ParamSlots RecordIn(Array& records, int instance) {
    if (instance < 0 || static_cast<size_t>(instance) >= records.size())
        return {0, nullptr, nullptr};
    return records[static_cast<size_t>(instance)].Slots();
}
} // namespace

ParamSlots VantorProcessor::Modules::SlotsOf(const ModuleTypeInfo& type, int instance) {
    const std::string_view name = type.type;
    if (name == "vantor_voice") return RecordIn(voices, instance);
    if (name == "vantor_zone") return RecordIn(zones, instance);
    if (name == "vantor_master")
        return instance == 0 ? master.Slots() : ParamSlots{0, nullptr, nullptr};
    if (name == "vantor_note") return RecordIn(notes, instance);
    if (name == "vantor_osc") return SlotsIn(oscillators, instance);
    if (name == "vantor_FmModule") return SlotsIn(fm, instance);
    if (name == "vantor_env") return SlotsIn(envelopes, instance);
    if (name == "vantor_vib")
        return instance == 0 ? vibrato.params.Slots() : ParamSlots{0, nullptr, nullptr};
    if (name == "track") return SlotsIn(trackers, instance);
    if (name == "vantor_lfo") return SlotsIn(lfos, instance);
    if (name == "vantor_vca") return SlotsIn(vcas, instance);
    if (name == "vantor_lag") return SlotsIn(lags, instance);
    if (name == "ramp") return SlotsIn(ramps, instance);
    if (name == "vantorvcf") return SlotsIn(filters, instance);
    if (name == "mod_matrix") return SlotsIn(matrices, instance);
    if (name == "MIDIRange") {
        if (instance < 0 || instance >= kZoneCount) return {0, nullptr, nullptr};
        return voiceState.zones[instance].range.Slots();
    }
    if (name == "analog-dual-phaser") return SlotsIn(phasers, instance);
    if (name == "dattoro-reverb") return SlotsIn(reverbs, instance);
    if (name == "delay") return SlotsIn(delays, instance);
    if (name == "mda-dubdelay") return SlotsIn(dubDelays, instance);
    if (name == "mda-flanger") return SlotsIn(flangers, instance);
    if (name == "moog-modular-chorus") return SlotsIn(choruses, instance);
    return {0, nullptr, nullptr};
}

} // namespace Norvell::Vantor
