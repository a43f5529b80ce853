#include "processor/modules.h"

#include "basictools/logger/log.h"
#include "dsp/random.h"

#include <string_view>

namespace Norvell::Vantor {

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
