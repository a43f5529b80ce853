#include "render/paths.h"

#include "vantor/layout.h"

#include <algorithm>
#include <cstdlib>
#include <system_error>

namespace Norvell::Render {

namespace fs = std::filesystem;

fs::path ExecutableDir() {
    return Vantor::Layout::ProgramDir();
}

std::vector<fs::path> EngineCandidates(const fs::path& exeDir) {
    return {exeDir / "vantorengine.so", Vantor::Layout::EngineDir(exeDir) / "vantorengine.so"};
}

std::optional<fs::path> UserPresetDir() {
    // A relative XDG_DATA_HOME is invalid and ignored, as the XDG base directory rules say.
    const char* data = std::getenv("XDG_DATA_HOME");
    if (data && fs::path(data).is_absolute()) return fs::path(data) / "vantor" / "presets";
    const char* home = std::getenv("HOME");
    if (home && *home) return fs::path(home) / ".local" / "share" / "vantor" / "presets";
    return std::nullopt;
}

std::vector<fs::path> PresetFolders(const fs::path& exeDir) {
    std::vector<fs::path> folders;
    if (auto user = UserPresetDir()) folders.push_back(*user);
    folders.push_back(Vantor::Layout::PresetDir(exeDir));
    return folders;
}

bool LooksLikeFile(const std::string& preset) {
    std::error_code ec;
    return preset.find('/') != std::string::npos || fs::path(preset).extension() == ".json" ||
           fs::is_regular_file(preset, ec);
}

std::optional<fs::path> FindPreset(const std::string& name, const std::vector<fs::path>& folders) {
    for (const auto& folder : folders) {
        std::error_code ec;
        const fs::path candidate = folder / (name + ".json");
        if (fs::is_regular_file(candidate, ec)) return candidate.lexically_normal();
    }
    return std::nullopt;
}

std::vector<std::string> ListPresets(const std::vector<fs::path>& folders) {
    std::vector<std::string> names;
    for (const auto& folder : folders) {
        std::error_code ec;
        for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec))
            if (it->path().extension() == ".json") names.push_back(it->path().stem().string());
    }
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

std::string FolderList(const std::vector<fs::path>& folders) {
    std::string text;
    for (const auto& folder : folders) text += "\n  " + folder.lexically_normal().string();
    return text;
}

} // namespace Norvell::Render
