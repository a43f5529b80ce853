#include "processor/moduletypes.h"

namespace Norvell::Vantor {
namespace {

std::vector<std::string> MatrixParams() {
    std::vector<std::string> names;
    for (int slot = 0; slot < 40; ++slot) {
        const std::string n = std::to_string(slot);
        names.push_back("src_" + n);
        names.push_back("dest_" + n);
        names.push_back("amount_" + n);
        names.push_back("quantize_" + n);
    }
    return names;
}

// One row per module type: its registry name, kind and parameter names; the
// counts come from kModuleCounts.
struct TypeRow {
    const char* type;
    ModuleKind kind;
    std::vector<std::string> params;
};

std::vector<ModuleTypeInfo> BuildTypes() {
    const std::vector<TypeRow> rows = {
        {"vantor_voice",
         ModuleKind::Voice,
         {"isenable", "ison", "volume", "pan", "detune", "transpose", "zone", "output"}},
        {"vantor_zone", ModuleKind::Zone, {"playmode", "enable_steal"}},
        {"vantor_master",
         ModuleKind::Master,
         {"master_volume", "master_fine_tune", "panic", "pitchbend", "modwheel", "aftertouch",
          "pedal-sustain", "pedal-expression", "allnotesoff", "effect0_selector", "effect0_active",
          "effect1_selector", "effect1_active", "presetloading", "presetmode", "sustain-hold"}},
        {"vantor_note", ModuleKind::Note, {"note", "color"}},
        {"vantor_osc",
         ModuleKind::Oscillator,
         {"freq", "detune", "pulse-width", "volume", "pulse-on", "saw-on", "triangle-on",
          "noise-on", "sync", "lag_on", "master", "keyboard_follow", "NoiseFmAmnt",
          "noise_filter_cutoff", "saw112FmAmnt", "vibrato", "pitchbend"}},
        {"vantor_FmModule", ModuleKind::FmAmount, {"amount", "destination", ""}},
        {"vantor_env",
         ModuleKind::Envelope,
         {"delay", "attack", "decay", "sustain", "release", "amp", "reset", "freerun", "dadr",
          "single_trig", "lfo_trig", "lfo_id", "gated_lfo_trig"}},
        {"vantor_vib",
         ModuleKind::Vibrato,
         {"speed", "speed_src", "speed_mod", "wave", "amp", "amp_src", "amp_mod", "lag"}},
        {"track",
         ModuleKind::Tracker,
         {"point1", "point2", "point3", "point4", "point5", "input_selector"}},
        {"vantor_lfo",
         ModuleKind::Lfo,
         {"speed", "wave", "input_selector", "retrig_point", "amp", "lag", "retrig_mode", "sync",
          "synced_speed"}},
        {"vantor_vca", ModuleKind::Vca, {"gain"}},
        {"vantor_lag",
         ModuleKind::Lag,
         {"input_selector", "rate", "is_linear", "legato", "equal_time"}},
        {"ramp", ModuleKind::Ramp, {"rate", "retrig_mode", "lfo_trig_on", "lfo_trig_id", "gated"}},
        {"vantorvcf",
         ModuleKind::Filter,
         {"cutoff", "res", "type", "keyboard-follow", "lag", "pitchbend", "vibrato"}},
        {"mod_matrix", ModuleKind::Matrix, MatrixParams()},
        {"MIDIRange", ModuleKind::KeyRange, {"min_note", "max_note", "channel_selector"}},
        {"analog-dual-phaser",
         ModuleKind::Phaser,
         {"rate1", "rate1synced", "feedback1", "depth1", "type1", "rate2", "rate2synced",
          "feedback2", "depth2", "type2", "midi sync", "dual mode", "stereo", "dry/wet"}},
        {"dattoro-reverb",
         ModuleKind::Reverb,
         {"in gain", "damping", "brightness", "diffusion", "decay", "feedback", "time", "dry/wet"}},
        {"delay",
         ModuleKind::StereoDelay,
         {"time1", "time1sync", "feedback1", "time2", "time2sync", "feedback2", "damping",
          "midi sync", "ping pong", "link", "phase inv", "dry/wet"}},
        {"mda-dubdelay",
         ModuleKind::DubDelay,
         {"delay time", "fb tone", "feedback", "lfo depth", "lfo rate", "dry/wet"}},
        {"mda-flanger", ModuleKind::Flanger, {"rate", "depth", "feedback", "delay", "dry/wet"}},
        {"moog-modular-chorus",
         ModuleKind::Chorus,
         {"type", "rate", "amount", "delay", "stereo width", "stereo rate", "dry/wet"}},
    };
    std::vector<ModuleTypeInfo> types;
    for (const TypeRow& row : rows)
        types.push_back(
            {row.type, row.kind, InstancesOf(row.kind), PerVoiceOf(row.kind), row.params});
    return types;
}

} // namespace

const std::vector<ModuleTypeInfo>& ModuleTypes() {
    static const std::vector<ModuleTypeInfo> types = BuildTypes();
    return types;
}

const ModuleTypeInfo* FindModuleType(std::string_view type) {
    for (const ModuleTypeInfo& info : ModuleTypes())
        if (info.type == type) return &info;
    return nullptr;
}

int FindModuleParam(const ModuleTypeInfo& info, std::string_view name) {
    for (size_t i = 0; i < info.params.size(); ++i)
        if (!info.params[i].empty() && info.params[i] == name) return static_cast<int>(i);
    return -1;
}

} // namespace Norvell::Vantor
