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

std::vector<ModuleTypeInfo> BuildTypes() {
    return {
        {"vantor_voice",
         12,
         0,
         {"isenable", "ison", "volume", "pan", "detune", "transpose", "zone", "output"}},
        {"vantor_zone", 23, 0, {"playmode", "enable_steal"}},
        {"vantor_master",
         1,
         0,
         {"master_volume", "master_fine_tune", "panic", "pitchbend", "modwheel", "aftertouch",
          "pedal-sustain", "pedal-expression", "allnotesoff", "effect0_selector", "effect0_active",
          "effect1_selector", "effect1_active", "presetloading", "presetmode", "sustain-hold"}},
        {"vantor_note", 128, 0, {"note", "color"}},
        {"vantor_osc",
         24,
         2,
         {"freq", "detune", "pulse-width", "volume", "pulse-on", "saw-on", "triangle-on",
          "noise-on", "sync", "lag_on", "master", "keyboard_follow", "NoiseFmAmnt",
          "noise_filter_cutoff", "saw112FmAmnt", "vibrato", "pitchbend"}},
        {"vantor_FmModule", 12, 1, {"amount", "destination", ""}},
        {"vantor_env",
         60,
         5,
         {"delay", "attack", "decay", "sustain", "release", "amp", "reset", "freerun", "dadr",
          "single_trig", "lfo_trig", "lfo_id", "gated_lfo_trig"}},
        {"vantor_vib",
         1,
         0,
         {"speed", "speed_src", "speed_mod", "wave", "amp", "amp_src", "amp_mod", "lag"}},
        {"track", 36, 3, {"point1", "point2", "point3", "point4", "point5", "input_selector"}},
        {"vantor_lfo",
         60,
         5,
         {"speed", "wave", "input_selector", "retrig_point", "amp", "lag", "retrig_mode", "sync",
          "synced_speed"}},
        {"vantor_vca", 24, 2, {"gain"}},
        {"vantor_lag", 12, 1, {"input_selector", "rate", "is_linear", "legato", "equal_time"}},
        {"ramp", 48, 4, {"rate", "retrig_mode", "lfo_trig_on", "lfo_trig_id", "gated"}},
        {"vantorvcf",
         12,
         1,
         {"cutoff", "res", "type", "keyboard-follow", "lag", "pitchbend", "vibrato"}},
        {"mod_matrix", 12, 1, MatrixParams()},
        {"MIDIRange", 23, 0, {"min_note", "max_note", "channel_selector"}},
        {"analog-dual-phaser",
         2,
         0,
         {"rate1", "rate1synced", "feedback1", "depth1", "type1", "rate2", "rate2synced",
          "feedback2", "depth2", "type2", "midi sync", "dual mode", "stereo", "dry/wet"}},
        {"dattoro-reverb",
         2,
         0,
         {"in gain", "damping", "brightness", "diffusion", "decay", "feedback", "time", "dry/wet"}},
        {"delay",
         2,
         0,
         {"time1", "time1sync", "feedback1", "time2", "time2sync", "feedback2", "damping",
          "midi sync", "ping pong", "link", "phase inv", "dry/wet"}},
        {"mda-dubdelay",
         2,
         0,
         {"delay time", "fb tone", "feedback", "lfo depth", "lfo rate", "dry/wet"}},
        {"mda-flanger", 2, 0, {"rate", "depth", "feedback", "delay", "dry/wet"}},
        {"moog-modular-chorus",
         2,
         0,
         {"type", "rate", "amount", "delay", "stereo width", "stereo rate", "dry/wet"}},
    };
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
