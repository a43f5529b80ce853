#pragma once
// Where the renderer finds the engine library and the named presets, relative
// to its own executable (see vantor/layout.h).
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Norvell::Render {

std::filesystem::path ExecutableDir();

// Engine candidates in search order: next to the executable, then the layout's engine folder.
std::vector<std::filesystem::path> EngineCandidates(const std::filesystem::path& exeDir);

// The user's own presets: $XDG_DATA_HOME/vantor/presets, by default
// ~/.local/share/vantor/presets; none without a home folder.
std::optional<std::filesystem::path> UserPresetDir();

// Preset folders in search order: the user's folder, then the layout's preset folder.
std::vector<std::filesystem::path> PresetFolders(const std::filesystem::path& exeDir);

// An argument names a file when it has a folder part, ends in .json or exists.
bool LooksLikeFile(const std::string& preset);

// First folder holding NAME.json.
std::optional<std::filesystem::path> FindPreset(const std::string& name,
                                                const std::vector<std::filesystem::path>& folders);

// Names of the presets in the folders, sorted, without duplicates.
std::vector<std::string> ListPresets(const std::vector<std::filesystem::path>& folders);

// The folders, one per line, each indented by two blanks, for messages.
std::string FolderList(const std::vector<std::filesystem::path>& folders);

} // namespace Norvell::Render
