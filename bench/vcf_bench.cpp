// Cost of the voice filter for one voice and one 32-sample block, per mode
// family, with the cutoff modulated every block.
#include "processor/modules/vcf.h"
#include "processor/modules/voices.h"

#include <benchmark/benchmark.h>

#include <cmath>

namespace {

using namespace Norvell::Vantor;

void BM_VcfBlock(benchmark::State& bench) {
    const int mode = static_cast<int>(bench.range(0));
    VcfState vcf;
    Init(vcf, 0);
    float params[kVcfParamCount] = {0.6f, 0.8f, (mode + 0.5f) / 15.0f, 0.0f, 0.0f, 0.0f, 0.0f};
    for (size_t i = 0; i < kVcfParamCount; ++i) vcf.params.bound[i] = &params[i];
    vcf.tuning = {0.5f, 0.5f, 0.6f};
    VoiceState voices;
    AddVoice(voices.activeVoices, 0);
    voices.voiceMessage[0] = 0x90u | 60u << 8 | 100u << 16;
    ProcessContext ctx;
    ctx.sampleRate = 44100.0f;
    ctx.voiceState = &voices;

    float audio[kBlockSize], cutoffMod[kBlockSize], resMod[kBlockSize] = {}, zero[kBlockSize] = {};
    float out[kBlockSize];
    for (int i = 0; i < kBlockSize; ++i) audio[i] = (i % 16) / 8.0f - 1.0f;
    float* in[7] = {audio, cutoffMod, resMod, zero, zero, zero, nullptr};
    float* outs[1] = {out};
    long block = 0;
    for (auto _ : bench) {
        const float sweep = 0.3f * std::sin(0.01f * static_cast<float>(block++));
        for (float& v : cutoffMod) v = sweep;
        Process(vcf, in, 7, outs, 1, ctx, false);
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
    }
}
// 3: plain cascade, 2: cascade with leak, 6: cascade with output table,
// 9 and 10: the state-variable modes.
BENCHMARK(BM_VcfBlock)->Arg(3)->Arg(2)->Arg(6)->Arg(9)->Arg(10);

} // namespace
