// Cost of the processor's block render, 32-frame blocks. The pattern cases
// play the reference chord pattern at 48 kHz on the plain patch (a saw through
// an open filter, envelope 1 on VCA 1, VCA 2 gain 1, twelve voices enabled):
// notes on keys 48 + 3n held 0.9 s, released 0.1 s, over and over. The
// x_realtime counter is audio seconds rendered per CPU second.
#include "engine_harness.h"

#include <benchmark/benchmark.h>

#include <string>

namespace {

using VantorTest::EngineHarness;

constexpr int kBlock = 32;

void Report(benchmark::State& state, float rate) {
    state.counters["x_realtime"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * kBlock / rate, benchmark::Counter::kIsRate);
}

void PlainPatch(EngineHarness& h) {
    h.SetupModulatedPatch(false);
    h.Set("voice1_vcf_cutoff", 1.0f);
}

// notes keys of the pattern (0 for idle), cycle of 0.9 s held and 0.1 s released.
void RunPattern(benchmark::State& state, int notes) {
    constexpr float kRate = 48000.0f;
    EngineHarness h(kRate);
    PlainPatch(h);
    const int held = int(0.9f * kRate) / kBlock;
    const int cycle = int(1.0f * kRate) / kBlock;
    float left[kBlock];
    float right[kBlock];
    int block = 0;
    for (auto _ : state) {
        const int at = block++ % cycle;
        if (at == 0)
            for (int n = 0; n < notes; ++n) h.NoteOn(48 + 3 * n);
        if (at == held)
            for (int n = 0; n < notes; ++n) h.NoteOff(48 + 3 * n);
        h.RenderBlock(left, right, kBlock);
        benchmark::DoNotOptimize(left[0]);
    }
    Report(state, kRate);
}

void BM_Pattern12Notes(benchmark::State& state) {
    RunPattern(state, 12);
}
void BM_Pattern1Note(benchmark::State& state) {
    RunPattern(state, 1);
}
void BM_PatternIdle(benchmark::State& state) {
    RunPattern(state, 0);
}

// Twelve held notes at 44.1 kHz, with every modulation source busy or not.
void RunHeld(benchmark::State& state, bool fullModulation) {
    EngineHarness h;
    h.SetupModulatedPatch(fullModulation);
    for (int k = 0; k < 12; ++k) h.NoteOn(48 + 3 * k);
    float left[kBlock];
    float right[kBlock];
    for (int i = 0; i < 64; ++i) h.RenderBlock(left, right);
    for (auto _ : state) {
        h.RenderBlock(left, right);
        benchmark::DoNotOptimize(left[0]);
    }
    Report(state, h.sampleRate);
}

void BM_Block12VoicesInit(benchmark::State& state) {
    RunHeld(state, false);
}
void BM_Block12VoicesFullModulation(benchmark::State& state) {
    RunHeld(state, true);
}

} // namespace

// Whole pattern cycles (1500 blocks each) so every run sees attacks and releases.
BENCHMARK(BM_Pattern12Notes)->Iterations(6000);
BENCHMARK(BM_Pattern1Note)->Iterations(6000);
BENCHMARK(BM_PatternIdle)->Iterations(6000);
BENCHMARK(BM_Block12VoicesInit);
BENCHMARK(BM_Block12VoicesFullModulation);
