#include "hostcore/preset.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <unordered_map>
#include <unordered_set>

namespace Norvell::HostCore {

namespace {

std::string FormatValue(double value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

float CheckedValue(const std::string& name, double value, const std::string& where) {
    if (!(value >= 0.0 && value <= 1.0))
        throw PresetError(where + "value " + FormatValue(value) + " of '" + name +
                          "' is outside 0..1");
    return static_cast<float>(value);
}

} // namespace

Preset ParsePreset(std::string_view text, const std::string& source) {
    const std::string where = source + ": ";
    nlohmann::ordered_json doc;
    try {
        doc = nlohmann::ordered_json::parse(text);
    } catch (const nlohmann::json::parse_error& e) {
        throw PresetError(where + "bad JSON: " + e.what());
    }
    if (!doc.is_object()) throw PresetError(where + "a preset must be a JSON object");

    Preset preset;
    preset.source = source;
    auto text_of = [&](const std::string& key, const nlohmann::ordered_json& item) {
        if (!item.is_string()) throw PresetError(where + "\"" + key + "\" must be a string");
        return item.get<std::string>();
    };
    for (const auto& [key, item] : doc.items()) {
        if (key == "name") {
            preset.name = text_of(key, item);
        } else if (key == "category") {
            preset.category = text_of(key, item);
        } else if (key == "description") {
            preset.description = text_of(key, item);
        } else if (key == "author") {
            preset.author = text_of(key, item);
        } else if (key == "tags") {
            if (!item.is_array()) throw PresetError(where + "\"tags\" must be a list of strings");
            for (const auto& tag : item) preset.tags.push_back(text_of("tags", tag));
        } else if (key == "version") {
            if (!item.is_number_integer() || item.get<int>() < 1)
                throw PresetError(where + "\"version\" must be a whole number from 1");
            if (item.get<int>() > kPresetFormatVersion)
                throw PresetError(where + "format version " + std::to_string(item.get<int>()) +
                                  " is newer than this program reads (" +
                                  std::to_string(kPresetFormatVersion) + ")");
        } else if (key != "values") {
            throw PresetError(where + "unknown key \"" + key +
                              "\" (expected \"name\", \"category\", \"description\", "
                              "\"author\", \"tags\", \"version\" and \"values\")");
        }
    }
    if (preset.name.empty()) preset.name = source;
    if (!doc.contains("values")) throw PresetError(where + "missing \"values\" object");
    const auto& values = doc["values"];
    if (!values.is_object()) throw PresetError(where + "\"values\" must be an object");
    for (const auto& [name, item] : values.items()) {
        if (!item.is_number())
            throw PresetError(where + "value of '" + name + "' must be a number between 0 and 1");
        preset.values.emplace_back(name, CheckedValue(name, item.get<double>(), where));
    }
    return preset;
}

Preset ReadPreset(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw PresetError(path + ": cannot open preset: " + std::strerror(errno));
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    return ParsePreset(text, path);
}

Preset OverBase(const Preset& base, const Preset& preset) {
    Preset result = preset;
    result.values.clear();
    std::unordered_set<std::string_view> own;
    for (const auto& [name, value] : preset.values) own.insert(name);
    for (const auto& entry : base.values)
        if (!own.contains(entry.first)) result.values.push_back(entry);
    // A name repeated in the file keeps its last value, in the place of its first.
    std::unordered_map<std::string_view, float> last;
    for (const auto& [name, value] : preset.values) last[name] = value;
    std::unordered_set<std::string_view> written;
    for (const auto& [name, value] : preset.values)
        if (written.insert(name).second) result.values.emplace_back(name, last[name]);
    return result;
}

Preset ReadPresetOverInit(const std::string& path, const std::string& initPath) {
    return OverBase(ReadPreset(initPath), ReadPreset(path));
}

PresetValues DiffOverBase(const PresetValues& base, const PresetValues& current) {
    std::unordered_map<std::string_view, float> start;
    for (const auto& [name, value] : base) start[name] = value;
    PresetValues diff;
    for (const auto& [name, value] : current) {
        const auto it = start.find(name);
        if (value != (it == start.end() ? 0.0f : it->second)) diff.emplace_back(name, value);
    }
    return diff;
}

std::string FormatPreset(const Preset& preset) {
    using Json = nlohmann::json;
    std::string text = "{\n";
    text += "  \"name\": " + Json(preset.name).dump() + ",\n";
    text += "  \"category\": " + Json(preset.category).dump() + ",\n";
    text += "  \"description\": " + Json(preset.description).dump() + ",\n";
    text += "  \"author\": " + Json(preset.author).dump() + ",\n";
    text += "  \"tags\": " + Json(preset.tags).dump() + ",\n";
    text += "  \"version\": " + std::to_string(kPresetFormatVersion) + ",\n";
    text += "  \"values\": {";
    const char* separator = "\n";
    for (const auto& [name, value] : preset.values) {
        char number[32];
        const auto end = std::to_chars(number, number + sizeof number, value).ptr;
        text += separator;
        text += "    " + Json(name).dump() + ": " + std::string(number, end);
        separator = ",\n";
    }
    text += preset.values.empty() ? "}\n}\n" : "\n  }\n}\n";
    return text;
}

std::vector<ParamValue> ResolvePreset(const Preset& preset, const ParamDirectory& params) {
    std::vector<ParamValue> resolved;
    std::string unknown;
    for (const auto& [name, value] : preset.values) {
        if (auto id = params.Find(name))
            resolved.push_back({*id, value});
        else
            unknown +=
                (unknown.empty() ? "" : "\n") + preset.source + ": " + params.UnknownMessage(name);
    }
    if (!unknown.empty()) throw PresetError(unknown);
    return resolved;
}

std::pair<std::string, float> ParseAssignment(std::string_view text) {
    const auto eq = text.find('=');
    if (eq == std::string_view::npos || eq == 0)
        throw PresetError("--set expects NAME=VALUE, got '" + std::string(text) + "'");
    const std::string name(text.substr(0, eq));
    const std::string_view number = text.substr(eq + 1);
    double value = 0.0;
    const auto [end, ec] = std::from_chars(number.data(), number.data() + number.size(), value);
    if (ec != std::errc() || end != number.data() + number.size() || number.empty())
        throw PresetError("--set " + name + ": '" + std::string(number) + "' is not a number");
    return {name, CheckedValue(name, value, "--set: ")};
}

} // namespace Norvell::HostCore
