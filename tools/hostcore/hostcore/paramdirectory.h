#pragma once
// The engine's parameter names, looked up by name with suggestions for typos.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Norvell::HostCore {

struct ParamDesc {
    std::string name;
    int32_t steps = 0; // steps of a stepped parameter, 0 when continuous
};

class ParamDirectory {
public:
    ParamDirectory() = default;
    explicit ParamDirectory(std::vector<ParamDesc> params);

    size_t Size() const { return params_.size(); }
    const ParamDesc& At(uint32_t id) const { return params_[id]; }
    const std::vector<ParamDesc>& All() const { return params_; }

    std::optional<uint32_t> Find(std::string_view name) const;

    // Up to count names close to name (edit distance), closest first.
    std::vector<std::string> Closest(std::string_view name, size_t count = 3) const;

    // "unknown parameter 'x'" plus the closest names, for error messages.
    std::string UnknownMessage(std::string_view name) const;

private:
    std::vector<ParamDesc> params_;
    std::unordered_map<std::string, uint32_t> ids_;
};

// Edit distance (insertions, deletions, substitutions), ignoring ASCII case.
size_t EditDistance(std::string_view a, std::string_view b);

} // namespace Norvell::HostCore
