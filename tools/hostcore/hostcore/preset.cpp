#include "hostcore/preset.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

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
    for (const auto& [key, item] : doc.items()) {
        if (key == "name") {
            if (!item.is_string()) throw PresetError(where + "\"name\" must be a string");
            preset.name = item.get<std::string>();
        } else if (key == "description") {
            if (!item.is_string()) throw PresetError(where + "\"description\" must be a string");
        } else if (key != "values") {
            throw PresetError(where + "unknown key \"" + key +
                              "\" (expected \"name\", \"description\" and \"values\")");
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
