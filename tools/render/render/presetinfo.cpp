#include "render/presetinfo.h"

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>

#include "render/paths.h"

namespace Norvell::Render {

namespace fs = std::filesystem;

namespace {

std::string StringField(const nlohmann::json& doc, const char* key) {
    const auto it = doc.find(key);
    return it != doc.end() && it->is_string() ? it->get<std::string>() : std::string();
}

} // namespace

PresetInfo ReadPresetInfo(const fs::path& file) {
    PresetInfo info{file.stem().string(), {}, {}};
    std::ifstream in(file);
    const auto doc = nlohmann::json::parse(in, nullptr, false);
    if (!doc.is_object()) return info;
    info.category = StringField(doc, "category");
    info.description = StringField(doc, "description");
    return info;
}

std::vector<PresetInfo> ListPresetInfo(const std::vector<fs::path>& folders) {
    std::vector<PresetInfo> presets;
    for (const auto& name : ListPresets(folders))
        if (auto file = FindPreset(name, folders)) presets.push_back(ReadPresetInfo(*file));
    return presets;
}

std::string FormatPresetList(const std::vector<PresetInfo>& presets) {
    size_t nameWidth = 0, categoryWidth = 0;
    for (const auto& p : presets) {
        nameWidth = std::max(nameWidth, p.name.size());
        categoryWidth = std::max(categoryWidth, p.category.size());
    }
    std::string text;
    for (const auto& p : presets) {
        std::string line = p.name;
        line.resize(nameWidth + 2, ' ');
        if (categoryWidth > 0) { // a column only when some preset has a category
            line += p.category;
            line.resize(nameWidth + 2 + categoryWidth + 2, ' ');
        }
        line += p.description;
        while (!line.empty() && line.back() == ' ') line.pop_back();
        text += line + "\n";
    }
    return text;
}

} // namespace Norvell::Render
