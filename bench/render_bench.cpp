// Cost of one 32-frame block render through the processor, with and without
// notes and with the modulation sources busy.
#include "engine_harness.h"

#include <benchmark/benchmark.h>

#include <string>

namespace {

using VantorTest::EngineHarness;

void RunBlocks(benchmark::State& state, bool notes, bool fullModulation) {
    EngineHarness h;
    h.SetupModulatedPatch(fullModulation);
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
