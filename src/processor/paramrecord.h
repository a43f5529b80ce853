#pragma once
// The generic module parameter record: values, bound-value pointers and
// parameter ids, with change detection on the 32-bit pattern of each value.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Norvell::Vantor {

inline constexpr uint32_t kUnboundId = 0xFFFFFFFFu;

// View of a record's binding slots, used by the registry to bind by name.
// `generation` points at the record's change counter pointer (null for a
// record without one).
struct ParamSlots {
    size_t count;
    const float** bound;
    uint32_t* ids;
    const uint32_t** generation = nullptr;
};

inline uint32_t FloatBits(float v) {
    uint32_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    return bits;
}

// Selector value to step index: trunc(value * count) clamped to 0..maxIndex,
// with the clamp done in float first (NaN gives 0), so no out-of-range float
// is ever converted to an integer.
inline int32_t StepIndex(float value, float count, int32_t maxIndex) {
    const float p = value * count;
    if (!(p >= 0.0f)) return 0;
    if (p >= static_cast<float>(maxIndex)) return maxIndex;
    return static_cast<int32_t>(p);
}

template <size_t N> struct ParamRecord {
    float values[N]{};
    const float* bound[N]{};
    uint32_t ids[N];
    // Set until the first Refresh, so derived values never keep constructor
    // defaults when the bound values equal them bit for bit.
    bool refreshPending = true;
    // Counter of the value store the pointers point into, bumped by every
    // write to it. While it still reads `seenGeneration` no value can have
    // changed and Refresh skips the comparison. Null: compare every time.
    const uint32_t* generation = nullptr;
    uint32_t seenGeneration = 0;

    ParamRecord() {
        for (uint32_t& id : ids) id = kUnboundId;
    }
    explicit ParamRecord(const std::array<float, N>& defaults) : ParamRecord() {
        for (size_t i = 0; i < N; ++i) values[i] = defaults[i];
    }

    // Copies every bound value whose bit pattern differs from the copy.
    // True when anything changed, or on the first call.
    bool Refresh() {
        bool changed = refreshPending;
        refreshPending = false;
        if (generation != nullptr) {
            if (!changed && *generation == seenGeneration) return false;
            seenGeneration = *generation;
        }
        for (size_t i = 0; i < N; ++i) {
            if (bound[i] == nullptr) continue;
            float v;
            std::memcpy(&v, bound[i], sizeof v);
            if (FloatBits(v) != FloatBits(values[i])) {
                values[i] = v;
                changed = true;
            }
        }
        return changed;
    }

    float operator[](size_t i) const { return values[i]; }
    ParamSlots Slots() { return {N, bound, ids, &generation}; }
};

} // namespace Norvell::Vantor
