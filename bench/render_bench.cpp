// Cost of one 32-frame block render through the processor, with and without
// notes and with the modulation sources busy.
#include "engine_harness.h"

#include <benchmark/benchmark.h>

#include <string>

namespace {

using VantorTest::EngineHarness;

// Every voice plays a sawtooth through the filter, envelope 1 on VCA 1.
void InitLikePatch(EngineHarness& h, bool fullModulation) {
    h.SetupPolyPatch();
    h.Set("master_volume", 0.5f);
    h.Set("voice1_vca1_gain", 0.0f);
    h.Set("voice1_osc1_saw-on", 1.0f);
    h.Set("voice1_osc1_keyboard_follow", 1.0f);
    h.Set("voice1_osc1_freq", 12.0f / 63.0f);
    h.Set("voice1_osc1_volume", 0.5f);
    h.Set("voice1_vcf_cutoff", 0.8f);
    h.Set("voice1_vcf_type", 1.5f / 15.0f);
    h.Set("voice1_env1_sustain", 0.7f);
    h.Set("voice1_env1_amp", 1.0f);
    h.Set("voice1_env1_release", 0.3f);
    int slot = 1;
    auto route = [&](int source, int dest, float amount) {
        const std::string m = "voice1_matrix" + std::to_string(slot++) + "_";
        h.Set(m + "src", (source + 0.5f) / 28.0f);
        h.Set(m + "dest", (dest + 0.5f) / 48.0f);
        h.Set(m + "amount", amount);
    };
    route(11, 9, 1.0f);
    if (!fullModulation) return;
    // Every LFO, ramp and tracker of every voice feeds a destination.
    for (int k = 0; k < 5; ++k) route(16 + k, 1 + k % 6, 0.6f);
    for (int k = 0; k < 4; ++k) route(24 + k, 7 + k % 2, 0.6f);
    for (int k = 0; k < 3; ++k) route(21 + k, 11, 0.6f);
    for (int k = 1; k <= 5; ++k) h.Set("voice1_lfo" + std::to_string(k) + "_speed", 0.2f * k);
    for (int k = 1; k <= 3; ++k)
        h.Set("voice1_track" + std::to_string(k) + "_input_selector", 8.5f / 28.0f);
}

void RunBlocks(benchmark::State& state, bool notes, bool fullModulation) {
    EngineHarness h;
    InitLikePatch(h, fullModulation);
    if (notes)
        for (int k = 0; k < 12; ++k) h.NoteOn(48 + 3 * k);
    float left[32];
    float right[32];
    for (int i = 0; i < 64; ++i) h.RenderBlock(left, right);
    for (auto _ : state) {
        h.RenderBlock(left, right);
        benchmark::DoNotOptimize(left[0]);
    }
    // Audio seconds rendered per second.
    state.counters["x_realtime"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * 32.0 / 44100.0, benchmark::Counter::kIsRate);
}

void BM_BlockNoNotes(benchmark::State& state) {
    RunBlocks(state, false, false);
}
void BM_Block12VoicesInit(benchmark::State& state) {
    RunBlocks(state, true, false);
}
void BM_Block12VoicesFullModulation(benchmark::State& state) {
    RunBlocks(state, true, true);
}

} // namespace

BENCHMARK(BM_BlockNoNotes);
BENCHMARK(BM_Block12VoicesInit);
BENCHMARK(BM_Block12VoicesFullModulation);
