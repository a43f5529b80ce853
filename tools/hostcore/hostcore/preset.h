#pragma once
// Presets: JSON files {"name": ..., "category": ..., "values": {"parameter": value, ...}}
// holding the changes over the init preset, and --set NAME=VALUE overrides, checked
// against the engine's parameter names.
#include <cstdint>
#include <optional>
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

// The newest preset file format this code reads and writes.
inline constexpr int kPresetFormatVersion = 1;

using PresetValues = std::vector<std::pair<std::string, float>>;

struct Preset {
    Preset() = default;
    Preset(std::string name, std::string source, PresetValues values)
        : name(std::move(name)), source(std::move(source)), values(std::move(values)) {}

    std::string name;
    std::string source;  // file path, or "--set": prefixes error messages
    PresetValues values; // in file order
    std::string category;
    std::string description;
    std::string author;
    std::vector<std::string> tags;
};

struct ParamValue {
    uint32_t id;
    float value;
};

// Parses preset text; source names the file in messages. Checks the JSON shape and the
// 0..1 range, not the parameter names. Throws PresetError.
Preset ParsePreset(std::string_view text, const std::string& source);
Preset ReadPreset(const std::string& path);

// The preset as it sounds: the base's values, then the preset's own (a name in both
// keeps the preset's value), each name once.
Preset OverBase(const Preset& base, const Preset& preset);
// Reads the preset at path and lays it over the init preset at initPath.
Preset ReadPresetOverInit(const std::string& path, const std::string& initPath);

// The values of current that differ from base, in current's order: what a preset file
// holds. A name missing from base counts as 0 there, the engine's start value.
PresetValues DiffOverBase(const PresetValues& base, const PresetValues& current);
// Preset file text (format version kPresetFormatVersion); each value is written with the
// fewest digits that read back as the same float.
std::string FormatPreset(const Preset& preset);

// Maps the names to ids. Throws PresetError naming every unknown parameter, one per line.
std::vector<ParamValue> ResolvePreset(const Preset& preset, const ParamDirectory& params);

// Parses one --set argument "NAME=VALUE". Throws PresetError.
std::pair<std::string, float> ParseAssignment(std::string_view text);

} // namespace Norvell::HostCore
