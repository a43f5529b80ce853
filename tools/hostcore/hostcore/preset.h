#pragma once
// Presets: JSON files {"name": ..., "values": {"parameter": value, ...}} and
// --set NAME=VALUE overrides, checked against the engine's parameter names.
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hostcore/paramdirectory.h"

namespace Norvell::HostCore {

class PresetError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Preset {
    std::string name;
    std::string source; // file path, or "--set": prefixes error messages
    std::vector<std::pair<std::string, float>> values; // in file order
};

struct ParamValue {
    uint32_t id;
    float value;
};

// Parses preset text; source names the file in messages. Checks the JSON shape and the
// 0..1 range, not the parameter names. Throws PresetError.
Preset ParsePreset(std::string_view text, const std::string& source);
Preset ReadPreset(const std::string& path);

// Maps the names to ids. Throws PresetError naming every unknown parameter, one per line.
std::vector<ParamValue> ResolvePreset(const Preset& preset, const ParamDirectory& params);

// Parses one --set argument "NAME=VALUE". Throws PresetError.
std::pair<std::string, float> ParseAssignment(std::string_view text);

} // namespace Norvell::HostCore
