#pragma once
// What --list-presets shows of each preset: its name, category and description.
#include <filesystem>
#include <string>
#include <vector>

namespace Norvell::Render {

struct PresetInfo {
    std::string name; // the name to pass to --preset (the file's stem)
    std::string category;
    std::string description;
};

// Reads the descriptive fields of a preset file; missing or unreadable fields stay
// empty, so the list still shows every file that --preset would find.
PresetInfo ReadPresetInfo(const std::filesystem::path& file);

// The presets of the folders, sorted by name, the first folder winning on duplicates.
std::vector<PresetInfo> ListPresetInfo(const std::vector<std::filesystem::path>& folders);

// One line per preset: name, category and description in aligned columns.
std::string FormatPresetList(const std::vector<PresetInfo>& presets);

} // namespace Norvell::Render
