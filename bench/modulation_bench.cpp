// Per-block cost of the modulation matrix, an envelope, a VCA and the FM
// amount module, each on one voice.
#include "processor/modules/envelope.h"
#include "processor/modules/fmamount.h"
#include "processor/modules/modmatrix.h"
#include "processor/modules/vca.h"
#include "processor/modules/voices.h"

#include <benchmark/benchmark.h>

#include <cmath>

namespace {

using namespace Norvell::Vantor;

struct Buffers {
    Buffers() {
        for (int i = 0; i < 64; ++i)
            for (int n = 0; n < kBlockSize; ++n)
                data[i][n] = 0.5f + 0.4f * std::sin(0.1f * static_cast<float>(i * kBlockSize + n));
        for (int i = 0; i < 64; ++i) ptr[i] = data[i];
    }
    alignas(16) float data[64][kBlockSize];
    float* ptr[64];
};

// Forty slots: six routes on each of six destinations, half quantised.
void BM_ModMatrix(benchmark::State& state) {
    static Buffers sources, destinations;
    ModMatrixState matrix;
    Init(matrix, kSourceCount, kDestinationCount);
    static float values[4 * kMatrixSlots];
    for (int slot = 0; slot < kMatrixSlots; ++slot) {
        values[4 * slot] = (static_cast<float>(1 + slot % 27) + 0.5f) / 28.0f;
        values[4 * slot + 1] = (static_cast<float>(1 + slot % 6) + 0.5f) / 48.0f;
        values[4 * slot + 2] = 0.8f;
        values[4 * slot + 3] = slot % 2 ? 1.0f : 0.0f;
        for (int k = 0; k < 4; ++k) matrix.params.bound[4 * slot + k] = &values[4 * slot + k];
    }
    float* in[kSourceCount];
    float* out[kDestinationCount];
    for (int i = 0; i < kSourceCount; ++i) in[i] = i == 0 ? nullptr : sources.ptr[i];
    for (int i = 0; i < kDestinationCount; ++i) out[i] = i == 0 ? nullptr : destinations.ptr[i];
    ProcessContext ctx;
    ctx.frameCount = kBlockSize;
    for (auto _ : state) {
        Process(matrix, in, kSourceCount, out, kDestinationCount, ctx);
        benchmark::DoNotOptimize(destinations.data[1][0]);
    }
}
BENCHMARK(BM_ModMatrix);

// A held note: attack, decay and sustain, restarted every 4096 blocks.
void BM_Envelope(benchmark::State& state) {
    static Buffers mod;
    for (int i = 0; i < 5; ++i)
        for (float& x : mod.data[i]) x = 0.0f;
    EnvelopeState env;
    Init(env, 0);
    static float values[kEnvParamCount] = {0.0f, 0.3f, 0.4f, 0.5f, 0.4f, 1.0f};
    for (int i = 0; i < kEnvParamCount; ++i) env.params.bound[i] = &values[i];
    VoiceState voices;
    ProcessContext ctx;
    ctx.frameCount = kBlockSize;
    ctx.voiceState = &voices;
    float output[kBlockSize];
    float* out[1] = {output};
    long blocks = 0;
    for (auto _ : state) {
        if (blocks++ % 4096 == 0) {
            AddVoice(voices.gateVoices, 0);
            AddVoice(voices.activeVoices, 0);
            AddVoice(voices.triggerVoices, 0);
        }
        Process(env, mod.ptr, kEnvInputCount, out, 1, ctx);
        RemoveVoice(voices.triggerVoices, 0);
        benchmark::DoNotOptimize(output[31]);
    }
}
BENCHMARK(BM_Envelope);

void BM_VcaAndFm(benchmark::State& state) {
    static Buffers buffers;
    VcaState vca;
    Init(vca);
    FmAmountState fm;
    Init(fm, 0);
    VoiceState voices;
    voices.activeVoices = 1;
    ProcessContext ctx;
    ctx.frameCount = kBlockSize;
    ctx.voiceState = &voices;
    float* vcaIn[2] = {buffers.ptr[0], buffers.ptr[1]};
    float* vcaOut[1] = {buffers.ptr[2]};
    float* fmIn[2] = {buffers.ptr[3], buffers.ptr[4]};
    float* fmOut[2] = {buffers.ptr[5], buffers.ptr[6]};
    for (auto _ : state) {
        Process(vca, vcaIn, 2, vcaOut, 1, ctx);
        Process(fm, fmIn, 2, fmOut, 2, ctx);
        benchmark::DoNotOptimize(buffers.data[2][31]);
        benchmark::DoNotOptimize(buffers.data[5][31]);
    }
}
BENCHMARK(BM_VcaAndFm);

} // namespace
