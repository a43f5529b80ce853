// Cost of the voice filter for 32-sample blocks, per mode family, with the
// cutoff modulated every block: one voice through Process, and twelve voices
// filtered together.
#include "processor/modules/vcf.h"
#include "processor/modules/voices.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

namespace {

using namespace Norvell::Vantor;

struct Voice {
    VcfState vcf;
    float params[kVcfParamCount] = {};
    float audio[kBlockSize] = {};
    float cutoffMod[kBlockSize] = {};
    float resMod[kBlockSize] = {};
    float zero[kBlockSize] = {};
    float out[kBlockSize] = {};
    float* in[kVcfInputCount] = {audio, cutoffMod, resMod, zero, zero, zero, nullptr};
    float* outs[1] = {out};

    explicit Voice(int mode) {
        Init(vcf, 0);
        const float values[kVcfParamCount] = {0.6f, 0.8f, (mode + 0.5f) / 15.0f, 0, 0, 0, 0};
        for (size_t i = 0; i < kVcfParamCount; ++i) {
            params[i] = values[i];
            vcf.params.bound[i] = &params[i];
        }
        vcf.tuning = {0.5f, 0.5f, 0.6f};
        for (int i = 0; i < kBlockSize; ++i) audio[i] = (i % 16) / 8.0f - 1.0f;
    }
    void Sweep(long block) {
        const float sweep = 0.3f * std::sin(0.01f * static_cast<float>(block));
        for (float& v : cutoffMod) v = sweep;
    }
};

struct Context {
    VoiceState voices;
    ProcessContext ctx;
    Context() {
        AddVoice(voices.activeVoices, 0);
        voices.voiceMessage[0] = 0x90u | 60u << 8 | 100u << 16;
        ctx.sampleRate = 44100.0f;
        ctx.voiceState = &voices;
    }
};

void BM_VcfBlock(benchmark::State& bench) {
    Voice voice(static_cast<int>(bench.range(0)));
    Context c;
    long block = 0;
    for (auto _ : bench) {
        voice.Sweep(block++);
        Process(voice.vcf, voice.in, 7, voice.outs, 1, c.ctx, false);
        benchmark::DoNotOptimize(voice.out);
        benchmark::ClobberMemory();
    }
}

void BM_VcfTwelveVoices(benchmark::State& bench) {
    const int mode = static_cast<int>(bench.range(0));
    std::vector<Voice> voices;
    voices.reserve(kVoiceCount);
    for (int v = 0; v < kVoiceCount; ++v) voices.emplace_back(mode);
    VcfCall calls[kVoiceCount];
    for (int v = 0; v < kVoiceCount; ++v)
        calls[v] = {&voices[v].vcf, voices[v].in, voices[v].outs, false};
    Context c;
    long block = 0;
    for (auto _ : bench) {
        for (Voice& voice : voices) voice.Sweep(block);
        ++block;
        ProcessVoices(calls, kVoiceCount, c.ctx);
        benchmark::DoNotOptimize(voices[0].out);
        benchmark::ClobberMemory();
    }
}

// 3: plain cascade, 2: cascade with leak, 6: cascade with output table,
// 9 and 10: the state-variable modes.
BENCHMARK(BM_VcfBlock)->Arg(3)->Arg(2)->Arg(6)->Arg(9)->Arg(10);
BENCHMARK(BM_VcfTwelveVoices)->Arg(3)->Arg(9);

} // namespace
