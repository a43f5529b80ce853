#include "jack/commands.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "render/paths.h"

namespace Norvell::Live {

namespace fs = std::filesystem;
using namespace HostCore;

std::string FindEngine() {
    const auto candidates = Render::EngineCandidates(Render::ExecutableDir());
    for (const auto& candidate : candidates) {
        std::error_code ec;
        if (fs::is_regular_file(candidate, ec)) return candidate.lexically_normal().string();
    }
    std::string searched;
    for (const auto& c : candidates) searched += "\n  " + c.lexically_normal().string();
    throw Failure("cannot find vantorengine.so; looked in:" + searched);
}

Preset LoadPreset(const std::string& preset) {
    if (Render::LooksLikeFile(preset)) return ReadPreset(preset);
    const auto folders = Render::PresetFolders(Render::ExecutableDir());
    if (auto path = Render::FindPreset(preset, folders)) return ReadPreset(path->string());
    std::string text = "unknown preset '" + preset + "'";
    const auto names = Render::ListPresets(folders);
    if (!names.empty()) {
        text += "; available presets:";
        for (const auto& n : names) text += " " + n;
    }
    throw Failure(text);
}

std::vector<uint8_t> ReadBlob(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw Failure(path + ": cannot open state file: " + std::strerror(errno));
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void WriteBlob(const std::string& path, const std::vector<uint8_t>& blob) {
    const std::string temp = path + ".part";
    {
        std::ofstream out(temp, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(blob.data()), std::streamsize(blob.size()));
        if (!out.flush()) {
            std::remove(temp.c_str());
            throw Failure("cannot write state file '" + path + "': " + std::strerror(errno));
        }
    }
    if (std::rename(temp.c_str(), path.c_str()) != 0) {
        const std::string why = std::strerror(errno);
        std::remove(temp.c_str());
        throw Failure("cannot write state file '" + path + "': " + why);
    }
}

void ApplySetup(Engine& engine, const ParamDirectory& params, const SetupOptions& options) {
    ApplyPerformanceDefaults(engine, params);
    if (options.loadState.empty()) {
        for (const auto& v : ResolvePreset(LoadPreset(options.preset), params))
            engine.SetParam(v.id, v.value);
    } else {
        const auto blob = ReadBlob(options.loadState);
        const size_t expected = engine.GetState().size();
        if (blob.size() != expected)
            throw Failure(options.loadState + ": state of " + std::to_string(blob.size()) +
                          " bytes, this engine's state has " + std::to_string(expected) + " bytes");
        engine.SetState(blob);
        // SetState runs no side effects: re-send the preset mode so the voices follow it.
        if (auto id = params.Find("presetmode")) {
            float mode = 0.0f;
            if (engine.GetParam(*id, mode)) engine.SetParam(*id, mode);
        }
    }
    Preset overrides{"--set", "--set", {}};
    for (const auto& text : options.sets) overrides.values.push_back(ParseAssignment(text));
    for (const auto& v : ResolvePreset(overrides, params)) engine.SetParam(v.id, v.value);
}

CommandReader::CommandReader(LiveHost& host, Engine& engine, const ParamDirectory& params,
                             const ControlIds& controls)
    : host_(host), engine_(engine), params_(params), controls_(controls) {}

bool CommandReader::Execute(const std::string& line) {
    std::istringstream words(line);
    std::string verb, argument, extra;
    words >> verb >> argument;
    if (verb.empty() || verb[0] == '#') return true;

    if (verb == "quit") return false;
    if (verb == "panic") {
        if (controls_.allNotesOff)
            host_.Send({HostAction::Kind::Immediate, *controls_.allNotesOff, 1.0f});
        if (controls_.sustain) host_.Send({HostAction::Kind::Param, *controls_.sustain, 0.0f});
        return true;
    }
    if (verb == "set") {
        std::string value;
        words >> value;
        if (argument.empty() || value.empty()) throw Failure("usage: set NAME VALUE");
        Preset one{"set", "set", {ParseAssignment(argument + "=" + value)}};
        for (const auto& v : ResolvePreset(one, params_))
            host_.Send({HostAction::Kind::Param, v.id, v.value});
        return true;
    }
    if (verb == "preset") {
        if (argument.empty()) throw Failure("usage: preset NAME|FILE");
        for (const auto& v : ResolvePreset(LoadPreset(argument), params_))
            host_.Send({HostAction::Kind::Param, v.id, v.value});
        return true;
    }
    if (verb == "save") {
        if (argument.empty()) throw Failure("usage: save FILE");
        if (!host_.Pause()) throw Failure("the engine did not stop for saving; nothing saved");
        std::vector<uint8_t> blob;
        try {
            blob = engine_.GetState();
        } catch (...) {
            host_.Resume();
            throw;
        }
        host_.Resume();
        WriteBlob(argument, blob);
        return true;
    }
    throw Failure("unknown command '" + verb +
                  "' (set NAME VALUE, preset NAME, panic, save FILE, "
                  "quit)");
}

} // namespace Norvell::Live
