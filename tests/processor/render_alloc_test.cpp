// Rendering, and the parameter changes a host sends while it plays (preset
// mode and panic among them), must never touch the heap: this program replaces the global
// allocation functions and counts every allocation made while blocks render.
#include "engine_harness.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

// The replacements pair malloc with free on purpose.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

namespace {
std::atomic<bool> counting{false};
std::atomic<long> allocations{0};

void* Allocate(size_t size, size_t alignment) {
    if (counting.load(std::memory_order_relaxed)) allocations.fetch_add(1);
    if (size == 0) size = 1;
    void* p = alignment > alignof(std::max_align_t)
                  ? std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment)
                  : std::malloc(size);
    return p;
}

void* AllocateOrThrow(size_t size, size_t alignment) {
    if (void* p = Allocate(size, alignment)) return p;
    throw std::bad_alloc();
}
} // namespace

// Every form of the global allocation functions, counted.
// clang-format off
void* operator new(size_t n) { return AllocateOrThrow(n, 0); }
void* operator new[](size_t n) { return AllocateOrThrow(n, 0); }
void* operator new(size_t n, std::align_val_t a) { return AllocateOrThrow(n, size_t(a)); }
void* operator new[](size_t n, std::align_val_t a) { return AllocateOrThrow(n, size_t(a)); }
void* operator new(size_t n, const std::nothrow_t&) noexcept { return Allocate(n, 0); }
void* operator new[](size_t n, const std::nothrow_t&) noexcept { return Allocate(n, 0); }
void* operator new(size_t n, std::align_val_t a, const std::nothrow_t&) noexcept { return Allocate(n, size_t(a)); }
void* operator new[](size_t n, std::align_val_t a, const std::nothrow_t&) noexcept { return Allocate(n, size_t(a)); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }
void operator delete(void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t, std::align_val_t) noexcept { std::free(p); }
// clang-format on

TEST(RealTime, RenderingNeverAllocates) {
    VantorTest::EngineHarness h;
    // Every modulation source in use, sample and hold on LFO 2, both slots busy.
    h.SetupModulatedPatch(true);
    h.Set("voice1_lfo2_wave", 6.5f / 7.0f);
    h.Set("voice1_lfo2_input_selector", 6.5f / 28.0f);
    h.Set("voice1_osc2_pulse-on", 1.0f);
    h.Set("voice1_osc2_noise-on", 1.0f);
    h.Set("voice1_fm_amount", 0.3f);
    h.Set("effect0_active", 1.0f);
    h.Set("effect1_active", 1.0f);
    h.Set("sustain-hold", 1.0f);
    h.RenderBlocks(2);

    // Ids are looked up before counting: building a name may allocate.
    auto& p = h.Processor();
    const uint32_t sustain = h.Id("pedal-sustain");
    const uint32_t playmode = h.Id("zone1_playmode");
    const uint32_t zone = h.Id("voice5_zone");
    const uint32_t fx0 = h.Id("effect0_selector");
    const uint32_t fx1 = h.Id("effect1_selector");
    const uint32_t panic = h.Id("panic");
    const uint32_t presetMode = h.Id("presetmode");
    float left[32];
    float right[32];
    counting = true;
    for (int block = 0; block < 600; ++block) {
        if (block % 7 == 0) h.NoteOn(36 + block % 48, 20 + block % 100);
        if (block % 11 == 0) h.NoteOff(36 + (block + 30) % 48);
        if (block % 50 == 0) p.SetParam(sustain, (block / 50) % 2 == 0 ? 1.0f : 0.0f);
        if (block % 90 == 0) p.SetParam(playmode, ((block / 90) % 6 + 0.5f) / 6.0f);
        if (block % 130 == 0) p.SetParam(zone, ((block / 130) % 3 + 0.5f) / 23.0f);
        if (block % 40 == 0) {
            p.SetParam(fx0, ((block / 40) % 7 + 0.5f) / 7.0f);
            p.SetParam(fx1, ((block / 40 + 3) % 7 + 0.5f) / 7.0f);
        }
        if (block == 300) p.SetParam(panic, 1.0f);
        if (block % 60 == 30) p.SetParam(presetMode, (block / 60) % 2 == 0 ? 0.0f : 1.0f);
        h.RenderBlock(left, right);
        const VantorValueChange* changes = nullptr;
        int32_t changeCount = 0;
        p.GetChangedValues(&changes, &changeCount);
    }
    counting = false;
    EXPECT_EQ(allocations.load(), 0);
}
