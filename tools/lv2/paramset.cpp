#include "paramset.h"

#include <array>
#include <cctype>
#include <cmath>
#include <regex>

namespace Norvell::Lv2 {

namespace {

bool StartsWith(const std::string& s, const char* prefix) {
    return s.rfind(prefix, 0) == 0;
}

// "voice7_vcf_cutoff" -> 7 and "vcf_cutoff"; 0 when not a voice parameter.
int VoiceOf(const std::string& name, std::string& rest) {
    static const std::regex pattern("voice([0-9]+)_(.*)");
    std::smatch m;
    if (!std::regex_match(name, m, pattern)) return 0;
    rest = m[2];
    return std::stoi(m[1]);
}

bool VoiceSetting(const std::string& rest) {
    static const std::array<const char*, 7> settings = {"isenable",  "volume", "pan",   "detune",
                                                        "transpose", "zone",   "output"};
    for (const char* s : settings)
        if (rest == s) return true;
    return false;
}

bool EndsWith(const std::string& s, const std::string& suffix) {
    return s.size() >= suffix.size() &&
           s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

std::string NoteName(int key) {
    static const char* names[] = {"C", "C#", "D", "D#", "E", "F", "F#", "G", "G#", "A", "A#", "B"};
    return std::string(names[key % 12]) + std::to_string(key / 12 - 1);
}

} // namespace

Role RoleOf(const std::string& name) {
    std::string rest;
    if (const int voice = VoiceOf(name, rest)) {
        if (rest == "ison") return Role::Readable;
        if (voice == 1 || VoiceSetting(rest)) return Role::Writable;
        return Role::StateOnly;
    }
    if (StartsWith(name, "note") && EndsWith(name, "_color")) return Role::Readable;
    if (StartsWith(name, "fx") || StartsWith(name, "zone") || StartsWith(name, "vib_") ||
        StartsWith(name, "effect") || name == "master_volume" || name == "master_fine_tune")
        return Role::Writable;
    if (name == "presetmode") return Role::StateOnly;
    return Role::Hidden;
}

bool OtherVoiceSound(const std::string& name) {
    std::string rest;
    return VoiceOf(name, rest) > 1 && RoleOf(name) == Role::StateOnly;
}

std::string ParamUri(const std::string& name) {
    return std::string(kPluginUri) + ":param:" + name;
}

std::string Label(const std::string& name) {
    std::string label;
    char previous = 0;
    for (char c : name) {
        if (c == '_' || c == '-') c = ' ';
        if (std::isdigit(static_cast<unsigned char>(c)) &&
            std::isalpha(static_cast<unsigned char>(previous)))
            label += ' ';
        label += c;
        previous = c;
    }
    if (!label.empty()) label[0] = char(std::toupper(static_cast<unsigned char>(label[0])));
    return label;
}

namespace {

constexpr double kGrid = 1e8;

// Rounds halves away from zero, as the hosts' writer does.
int64_t GridSteps(float value) {
    return std::llround(double(value) * kGrid);
}

} // namespace

float OnStateGrid(float value) {
    return float(double(GridSteps(value)) / kGrid);
}

std::string StateText(float value) {
    const int64_t steps = GridSteps(value);
    std::string digits = std::to_string(steps % int64_t(kGrid));
    digits.insert(0, 8 - digits.size(), '0');
    while (digits.size() > 1 && digits.back() == '0') digits.pop_back();
    return std::to_string(steps / int64_t(kGrid)) + "." + digits;
}

std::vector<ScalePoint> ScalePoints(const std::string& name, int32_t steps) {
    std::vector<ScalePoint> points;
    if (steps < 2) return points;
    if (steps == 2) return {{0.0f, "Off"}, {1.0f, "On"}};
    // Key ranges and channels are rounded: each step is centred on its own value.
    const bool rounded = EndsWith(name, "_min_note") || EndsWith(name, "_max_note") ||
                         EndsWith(name, "_channel_selector");
    static const char* effects[] = {"None",    "Stereo delay", "Dual phaser", "Dub delay",
                                    "Flanger", "Chorus",       "Plate reverb"};
    const bool effect = EndsWith(name, "_selector") && StartsWith(name, "effect") && steps == 7;
    const bool keys = EndsWith(name, "_note");
    const std::string word = Label(name.substr(name.rfind('_') + 1));
    for (int32_t k = 0; k < steps; ++k) {
        const float value =
            rounded ? float(k) / float(steps - 1) : (float(k) + 0.5f) / float(steps);
        std::string label = effect ? effects[k]
                            : keys ? NoteName(k)
                                   : word + " " + std::to_string(rounded ? k : k + 1);
        points.push_back({value, label});
    }
    return points;
}

} // namespace Norvell::Lv2
