#pragma once
// Delay memory shared by the effects: storage, a write position and its wrap.
// Each effect keeps its own read formula; this class only owns the ring.
//
// Lines run one of two ways. A line that counts down steps back one sample
// and stores the newest there (Push, or Retreat then Store), so "d samples
// behind the newest" is position + d. A line that counts up stores ahead of
// its position (StoreAhead, or through Data()) and then moves past what it
// stored (Advance).
//
// Clear zeroes only what was written since the previous clear, so clearing
// an effect that has been quiet costs next to nothing even when its memory
// is megabytes long.
#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

namespace Norvell::dsp {

class DelayLine {
public:
    // Allocates `capacity` zeroed samples and uses all of them as the ring
    // (construction only). A mirrored line keeps a second copy of the ring
    // right after the first, so a read up to one ring length behind the
    // newest sample never has to wrap.
    void Allocate(int32_t capacity, bool mirror = false) {
        mirrored = mirror;
        storage.assign(static_cast<size_t>(mirror ? 2 * capacity : capacity), 0.0f);
        length = capacity;
        position = 0;
        behind = ahead = 0;
        wholeRing = false;
    }

    // Uses the first `n` samples of the storage as the ring (n <= capacity).
    // The next Clear zeroes the whole new ring.
    void SetLength(int32_t n) {
        length = n;
        wholeRing = true;
    }

    int32_t Length() const { return length; }
    int32_t Position() const { return position; }
    void SetPosition(int32_t p) { position = p; }
    float* Data() { return storage.data(); }
    const float* Data() const { return storage.data(); }
    // The whole storage, mirror copy included.
    std::span<const float> Samples() const { return storage; }
    float operator[](int32_t i) const { return storage[static_cast<size_t>(i)]; }
    float& operator[](int32_t i) { return storage[static_cast<size_t>(i)]; }

    // Counting down: one step back, wrapping at the start of the ring.
    void Retreat() {
        if (--position < 0) position = length - 1;
        behind = std::min(behind + 1, length);
    }
    // Stores x at the write position (and in the mirror copy).
    void Store(float x) {
        storage[static_cast<size_t>(position)] = x;
        if (mirrored) storage[static_cast<size_t>(position + length)] = x;
    }
    void Push(float x) {
        Retreat();
        Store(x);
    }

    // Counting up: stores x `offset` samples ahead of the write position.
    void StoreAhead(int32_t offset, float x) {
        storage[static_cast<size_t>((position + offset) % length)] = x;
    }
    // Moves the write position past `n` stored samples.
    void Advance(int32_t n) {
        position = (position + n) % length;
        ahead = std::min(ahead + n, length);
    }

    // Zeroes every sample written since the last clear and returns the write
    // position to the start of the ring.
    void Clear() {
        if (wholeRing || behind + ahead >= length) {
            ZeroRange(0, length);
        } else {
            ZeroRange(position, behind);                 // a counting-down line wrote from here on
            ZeroRange(position - ahead + length, ahead); // a counting-up line wrote up to here
        }
        position = 0;
        behind = ahead = 0;
        wholeRing = false;
    }

private:
    // Zeroes `count` ring samples from `start` (taken modulo the length) on.
    void ZeroRange(int32_t start, int32_t count) {
        if (count <= 0) return;
        start %= length;
        const int32_t first = std::min(count, length - start);
        ZeroSpan(start, first);
        ZeroSpan(0, count - first);
    }
    void ZeroSpan(int32_t start, int32_t count) {
        if (count <= 0) return;
        float* begin = storage.data() + start;
        std::fill(begin, begin + count, 0.0f);
        if (mirrored) std::fill(begin + length, begin + length + count, 0.0f);
    }

    std::vector<float> storage;
    int32_t length = 0;
    int32_t position = 0;
    int32_t behind = 0; // samples written by stepping back since the last clear
    int32_t ahead = 0;  // samples written by advancing since the last clear
    bool wholeRing = false;
    bool mirrored = false;
};

} // namespace Norvell::dsp
