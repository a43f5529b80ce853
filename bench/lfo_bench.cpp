// Cost of one 32-sample block of an LFO (per wave), the vibrato generator and
// the lag (per mode).
#include "processor/modules/lag.h"
#include "processor/modules/lfo.h"
#include "processor/modules/vibrato.h"
#include "processor/modules/voices.h"

#include <benchmark/benchmark.h>

namespace {

using namespace Norvell::Vantor;

float speedIn[kBlockSize], ampIn[kBlockSize], source[kBlockSize], out0[kBlockSize],
    out1[kBlockSize];

// wave index 0 to 6; lag (edge softening) on.
void BM_LfoBlock(benchmark::State& st) {
    VoiceState voices;
    AddVoice(voices.activeVoices, 0);
    const ProcessContext ctx{120.0f, 44100.0f, kBlockSize, &voices};
    LfoState lfo;
    Init(lfo, 0);
    float values[kLfoParamCount] = {0.9f, (st.range(0) + 0.5f) / 6.0f, 0.0f, 0.0f, 1.0f, 1.0f};
    for (uint32_t i = 0; i < kLfoParamCount; ++i) lfo.params.bound[i] = &values[i];
    float* in[3] = {speedIn, ampIn, source};
    float* out[2] = {out0, out1};
    for (auto _ : st) {
        Process(lfo, in, 3, out, 2, ctx);
        benchmark::DoNotOptimize(out0[31]);
    }
}
BENCHMARK(BM_LfoBlock)->DenseRange(0, 6);

void BM_VibratoBlock(benchmark::State& st) {
    const ProcessContext ctx{120.0f, 44100.0f, kBlockSize, nullptr};
    VibratoState vib;
    Init(vib);
    float values[kVibParamCount] = {0.9f, 1.0f / 3.0f, 1.0f, 0.0f, 0.5f, 0.0f, 0.5f, 0.0f};
    for (uint32_t i = 0; i < kVibParamCount; ++i) vib.params.bound[i] = &values[i];
    float* in[3] = {speedIn, ampIn, source};
    float* out[2] = {out0, out1};
    for (auto _ : st) {
        RefreshParams(vib);
        Process(vib, in, 0, out, 2, ctx);
        benchmark::DoNotOptimize(out0[31]);
    }
}
BENCHMARK(BM_VibratoBlock);

// 0 exponential, 1 linear, 2 equal time.
void BM_LagBlock(benchmark::State& st) {
    VoiceState voices;
    AddVoice(voices.activeVoices, 0);
    const ProcessContext ctx{120.0f, 44100.0f, kBlockSize, &voices};
    LagState lag;
    Init(lag, 0);
    float values[kLagParamCount] = {6.5f / 28.0f, 0.5f, st.range(0) > 0 ? 1.0f : 0.0f, 0.0f,
                                    st.range(0) > 1 ? 1.0f : 0.0f};
    for (uint32_t i = 0; i < kLagParamCount; ++i) lag.params.bound[i] = &values[i];
    float* in[2] = {source, speedIn};
    float* out[1] = {out0};
    float key = 0.4f;
    for (auto _ : st) {
        key = key > 0.5f ? 0.4f : key + 0.01f;
        for (float& x : source) x = key;
        Process(lag, in, 29, out, 1, ctx);
        benchmark::DoNotOptimize(out0[31]);
    }
}
BENCHMARK(BM_LagBlock)->DenseRange(0, 2);

} // namespace
