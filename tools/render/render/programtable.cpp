#include "render/programtable.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace Norvell::Render {

namespace fs = std::filesystem;
using namespace HostCore;

namespace {

bool ParseProgram(std::string_view text, int& program) {
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), program);
    return ec == std::errc() && end == text.data() + text.size() && program >= 1 && program <= 128;
}

} // namespace

std::map<uint8_t, std::string> ParseProgramTable(std::string_view text, const std::string& source) {
    std::map<uint8_t, std::string> table;
    std::istringstream lines{std::string(text)};
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        line = line.substr(0, line.find('#'));
        std::istringstream words(line);
        std::string range, preset, extra;
        if (!(words >> range)) continue;
        const std::string where = source + ":" + std::to_string(number) + ": ";
        if (!(words >> preset) || (words >> extra))
            throw Failure(where + "expected 'PROGRAM PRESET' or 'FIRST-LAST PRESET'");
        const size_t dash = range.find('-');
        int first = 0, last = 0;
        const bool ok = dash == std::string::npos
                            ? ParseProgram(range, first) && ParseProgram(range, last)
                            : ParseProgram(std::string_view(range).substr(0, dash), first) &&
                                  ParseProgram(std::string_view(range).substr(dash + 1), last);
        if (!ok || first > last)
            throw Failure(where + "'" + range + "' is not a program from 1 to 128 or a range");
        for (int p = first; p <= last; ++p) table[uint8_t(p - 1)] = preset;
    }
    return table;
}

std::map<uint8_t, std::string> ReadProgramTable(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw Failure(path + ": cannot open the program table");
    std::ostringstream text;
    text << in.rdbuf();
    auto table = ParseProgramTable(text.str(), path);
    // Preset files are relative to the table, so that a table and its presets move together.
    const fs::path folder = fs::path(path).parent_path();
    for (auto& [program, preset] : table) {
        const fs::path file(preset);
        const bool isFile = preset.find('/') != std::string::npos || file.extension() == ".json";
        if (isFile && file.is_relative()) preset = (folder / file).lexically_normal().string();
    }
    return table;
}

std::vector<float> StartValues(Engine& engine, const ParamDirectory& params) {
    ApplyPerformanceDefaults(engine, params);
    std::vector<float> values(params.Size(), 0.0f);
    for (uint32_t id = 0; id < params.Size(); ++id) engine.GetParam(id, values[id]);
    return values;
}

std::vector<ParamValue> ProgramChange(const ParamDirectory& params,
                                      const std::vector<float>& baseline, const std::string& preset,
                                      const SetupOptions& options, const ControlIds& controls) {
    std::vector<ParamValue> named = ResolvePreset(LoadPreset(preset), params);
    Preset overrides{"--set", "--set", {}};
    for (const auto& text : options.sets) overrides.values.push_back(ParseAssignment(text));
    for (const auto& v : ResolvePreset(overrides, params)) named.push_back(v);

    std::vector<bool> skip(params.Size(), false);
    for (const auto& id : {controls.modwheel, controls.expression, controls.sustain,
                           controls.pitchbend, controls.aftertouch, controls.allNotesOff})
        if (id && *id < skip.size()) skip[*id] = true;
    std::vector<bool> isNamed(params.Size(), false);
    for (const auto& v : named) isNamed[v.id] = true;

    // What the preset leaves out goes back to its start value first, as on a fresh engine.
    std::vector<ParamValue> values;
    for (uint32_t id = 0; id < params.Size() && id < baseline.size(); ++id)
        if (!isNamed[id] && !skip[id]) values.push_back({id, baseline[id]});
    for (const auto& v : named)
        if (!skip[v.id]) values.push_back(v);
    return values;
}

} // namespace Norvell::Render
