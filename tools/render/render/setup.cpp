#include "render/setup.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "render/paths.h"

namespace Norvell::Render {

namespace fs = std::filesystem;
using namespace HostCore;

std::string FindEngine() {
    const auto candidates = EngineCandidates(ExecutableDir());
    for (const auto& candidate : candidates) {
        std::error_code ec;
        if (fs::is_regular_file(candidate, ec)) return candidate.lexically_normal().string();
    }
    throw Failure("cannot find vantorengine.so; looked in:" + FolderList(candidates) +
                  "\nchoose one with --engine PATH");
}

Preset LoadPreset(const std::string& preset) {
    if (LooksLikeFile(preset)) return ReadPreset(preset);
    const auto folders = PresetFolders(ExecutableDir());
    if (auto path = FindPreset(preset, folders)) return ReadPreset(path->string());
    std::string text = "unknown preset '" + preset + "'";
    const auto names = ListPresets(folders);
    if (!names.empty()) {
        text += "; available presets:";
        for (const auto& n : names) text += " " + n;
    }
    throw Failure(text + "\nlooked in:" + FolderList(folders));
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

    if (options.loadState.empty())
        for (const auto& v : ResolvePreset(LoadPreset(options.preset), params))
            engine.SetParam(v.id, v.value);

    if (!options.loadState.empty()) {
        const auto blob = ReadBlob(options.loadState);
        const size_t expected = engine.GetState().size();
        if (blob.size() != expected)
            throw Failure(options.loadState + ": state of " + std::to_string(blob.size()) +
                          " bytes, this engine's state has " + std::to_string(expected) + " bytes");
        if (!engine.SetState(blob))
            throw Failure(options.loadState + ": the engine refused this state (a value in it is "
                                              "not a finite number)");
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

} // namespace Norvell::Render
