#include "render/setup.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "render/paths.h"
#include "vantor/layout.h"

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

namespace {

std::string InitPresetPath() {
    const fs::path path = Vantor::Layout::PresetDir(ExecutableDir()) / "init.json";
    std::error_code ec;
    if (!fs::is_regular_file(path, ec))
        throw Failure("cannot find the init preset every preset builds on: " + path.string());
    return path.string();
}

// Writes text under a temporary name and renames, so a failure leaves no partial file.
void WriteFileAtomically(const std::string& path, const char* data, size_t size,
                         const std::string& what) {
    const std::string temp = path + ".part";
    {
        std::ofstream out(temp, std::ios::binary | std::ios::trunc);
        out.write(data, std::streamsize(size));
        if (!out.flush()) {
            std::remove(temp.c_str());
            throw Failure("cannot write " + what + " '" + path + "': " + std::strerror(errno));
        }
    }
    if (std::rename(temp.c_str(), path.c_str()) != 0) {
        const std::string why = std::strerror(errno);
        std::remove(temp.c_str());
        throw Failure("cannot write " + what + " '" + path + "': " + why);
    }
}

} // namespace

Preset LoadPreset(const std::string& preset) {
    if (LooksLikeFile(preset)) return ReadPresetOverInit(preset, InitPresetPath());
    const auto folders = PresetFolders(ExecutableDir());
    if (auto path = FindPreset(preset, folders))
        return ReadPresetOverInit(path->string(), InitPresetPath());
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
    WriteFileAtomically(path, reinterpret_cast<const char*>(blob.data()), blob.size(),
                        "state file");
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

PresetValues ReadValues(const Engine& engine, const ParamDirectory& params) {
    PresetValues values;
    for (uint32_t id = 0; id < params.Size(); ++id) {
        float value = 0.0f;
        if (engine.GetParam(id, value)) values.emplace_back(params.At(id).name, value);
    }
    return values;
}

PresetValues InitValues(Engine& engine, const ParamDirectory& params) {
    ApplyPerformanceDefaults(engine, params);
    for (const auto& v : ResolvePreset(ReadPreset(InitPresetPath()), params))
        engine.SetParam(v.id, v.value);
    return ReadValues(engine, params);
}

void SavePreset(const std::string& path, const PresetValues& initValues,
                const PresetValues& current) {
    Preset preset;
    preset.name = fs::path(path).stem().string();
    preset.category = "User";
    preset.values = DiffOverBase(initValues, current);
    const std::string text = FormatPreset(preset);
    WriteFileAtomically(path, text.data(), text.size(), "preset");
}

} // namespace Norvell::Render
