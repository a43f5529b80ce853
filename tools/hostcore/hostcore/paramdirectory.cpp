#include "hostcore/paramdirectory.h"

#include <algorithm>
#include <cctype>
#include <numeric>

namespace Norvell::HostCore {

ParamDirectory::ParamDirectory(std::vector<ParamDesc> params) : params_(std::move(params)) {
    for (uint32_t id = 0; id < params_.size(); ++id)
        ids_.emplace(params_[id].name, id); // the first of duplicate names wins
}

std::optional<uint32_t> ParamDirectory::Find(std::string_view name) const {
    auto it = ids_.find(std::string(name));
    if (it == ids_.end()) return std::nullopt;
    return it->second;
}

size_t EditDistance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const bool same = std::tolower(static_cast<unsigned char>(a[i - 1])) ==
                              std::tolower(static_cast<unsigned char>(b[j - 1]));
            const size_t next = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (same ? 0 : 1)});
            diagonal = row[j];
            row[j] = next;
        }
    }
    return row[b.size()];
}

std::vector<std::string> ParamDirectory::Closest(std::string_view name, size_t count) const {
    // Only names within about a third of the typed length count as "close".
    const size_t limit = std::max<size_t>(2, name.size() / 3);
    std::vector<std::pair<size_t, uint32_t>> ranked;
    for (uint32_t id = 0; id < params_.size(); ++id) {
        const std::string& candidate = params_[id].name;
        const size_t lengthGap = candidate.size() > name.size() ? candidate.size() - name.size()
                                                                : name.size() - candidate.size();
        if (lengthGap > limit) continue;
        const size_t d = EditDistance(name, candidate);
        if (d <= limit) ranked.emplace_back(d, id);
    }
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto& x, const auto& y) { return x.first < y.first; });
    std::vector<std::string> names;
    for (const auto& [distance, id] : ranked) {
        if (names.size() == count) break;
        names.push_back(params_[id].name);
    }
    return names;
}

std::string ParamDirectory::UnknownMessage(std::string_view name) const {
    std::string text = "unknown parameter '" + std::string(name) + "'";
    const auto close = Closest(name);
    if (close.empty()) return text + " (see --list-params)";
    text += "; closest matches: ";
    for (size_t i = 0; i < close.size(); ++i) text += (i ? ", " : "") + close[i];
    return text;
}

} // namespace Norvell::HostCore
