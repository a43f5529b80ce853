#pragma once
// Table built once from (index, value) breakpoints by straight-line
// interpolation and read with linear interpolation. Every lookup clamps its
// position (NaN reads the first entry), so no value can read past the table.
#include <array>
#include <cmath>
#include <cstddef>
#include <initializer_list>
#include <utility>

namespace Norvell::dsp {

template <size_t N> class BreakpointTable {
public:
    using Breakpoint = std::pair<int, float>;

    // Entries between consecutive breakpoints (i0, a), (i1, b):
    // (1 - t) a + t b with t = (i - i0) / (i1 - i0).
    static BreakpointTable FromBreakpoints(std::initializer_list<Breakpoint> points) {
        BreakpointTable table;
        const Breakpoint* prev = nullptr;
        for (const Breakpoint& bp : points) {
            if (prev == nullptr) {
                table.entries[static_cast<size_t>(bp.first)] = bp.second;
            } else {
                const int span = bp.first - prev->first;
                for (int i = prev->first; i <= bp.first; ++i) {
                    const float t = static_cast<float>(i - prev->first) / static_cast<float>(span);
                    table.entries[static_cast<size_t>(i)] =
                        (1.0f - t) * prev->second + t * bp.second;
                }
            }
            prev = &bp;
        }
        return table;
    }

    static BreakpointTable FromValues(const std::array<float, N>& values) {
        BreakpointTable table;
        table.entries = values;
        return table;
    }

    // Position x in 0..1 over the whole table: p = x (N - 1).
    float Lookup(float x) const { return AtIndex(x * static_cast<float>(N - 1)); }

    // Real index: i = trunc(p), t = p - i, (1 - t) e[i] + t e[i + 1];
    // the last index and beyond give the last entry.
    [[gnu::always_inline]] inline float AtIndex(float p) const {
        if (!(p > 0.0f)) return entries[0];
        if (p >= static_cast<float>(N - 1)) return entries[N - 1];
        const size_t i = static_cast<size_t>(p);
        const float t = p - static_cast<float>(i);
        return (1.0f - t) * entries[i] + t * entries[i + 1];
    }

    float operator[](size_t i) const { return entries[i]; }
    static constexpr size_t size() { return N; }

private:
    std::array<float, N> entries{};
};

} // namespace Norvell::dsp
