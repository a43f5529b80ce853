// Cost of each effect type for one second of stereo audio at 44.1 kHz,
// processed in 32-sample blocks as the render does.
#include "processor/modules/chorus.h"
#include "processor/modules/dualphaser.h"
#include "processor/modules/dubdelay.h"
#include "processor/modules/flanger.h"
#include "processor/modules/platereverb.h"
#include "processor/modules/stereodelay.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <utility>
#include <vector>

namespace {

using namespace Norvell::Vantor;

constexpr int kBlocksPerSecond = 44100 / kBlockSize + 1;

template <typename State>
void RunSecond(benchmark::State& bench, std::initializer_list<std::pair<size_t, float>> settings) {
    auto effect = std::make_unique<State>();
    for (auto [index, value] : settings) effect->params.values[index] = value;
    Init(*effect);

    std::vector<float> input(2 * kBlockSize);
    uint32_t seed = 1;
    for (float& v : input) {
        seed = seed * 1664525u + 1013904223u;
        v = static_cast<float>(seed >> 8) / 16777216.0f - 0.5f;
    }
    std::vector<float> output(2 * kBlockSize);
    float* in[2] = {input.data(), input.data() + kBlockSize};
    float* out[2] = {output.data(), output.data() + kBlockSize};
    ProcessContext ctx;
    ctx.frameCount = kBlockSize;

    for (auto _ : bench) {
        for (int b = 0; b < kBlocksPerSecond; ++b) Process(*effect, in, 2, out, 2, ctx);
        benchmark::DoNotOptimize(output.data());
        benchmark::ClobberMemory();
    }
    bench.SetLabel("per second of stereo audio");
}

void BM_StereoDelay(benchmark::State& s) {
    RunSecond<StereoDelayState>(s, {{kDelayTime1, 0.5f},
                                    {kDelayTime2, 0.6f},
                                    {kDelayFeedback1, 0.5f},
                                    {kDelayFeedback2, 0.5f},
                                    {kDelayDamping, 0.5f},
                                    {kDelayDryWet, 0.5f}});
}
void BM_DualPhaser(benchmark::State& s) {
    RunSecond<DualPhaserState>(s, {{kPhaserRate1, 0.4f},
                                   {kPhaserRate2, 0.5f},
                                   {kPhaserFeedback1, 0.6f},
                                   {kPhaserFeedback2, 0.6f},
                                   {kPhaserDepth1, 0.5f},
                                   {kPhaserDepth2, 0.5f},
                                   {kPhaserType2, 1.0f},
                                   {kPhaserStereo, 0.5f},
                                   {kPhaserDryWet, 0.5f}});
}
void BM_DubDelay(benchmark::State& s) {
    RunSecond<DubDelayState>(s, {{kDubDelayTime, 0.3f},
                                 {kDubDelayFbTone, 0.6f},
                                 {kDubDelayFeedback, 0.6f},
                                 {kDubDelayLfoDepth, 0.3f},
                                 {kDubDelayLfoRate, 0.3f},
                                 {kDubDelayDryWet, 0.5f}});
}
void BM_Flanger(benchmark::State& s) {
    RunSecond<FlangerState>(s, {{kFlangerRate, 0.4f},
                                {kFlangerDepth, 0.5f},
                                {kFlangerFeedback, 0.8f},
                                {kFlangerDelay, 0.5f},
                                {kFlangerDryWet, 0.5f}});
}
void BM_Chorus(benchmark::State& s) {
    RunSecond<ChorusState>(s, {{kChorusType, 1.0f},
                               {kChorusRate, 0.5f},
                               {kChorusAmount, 0.5f},
                               {kChorusDelay, 0.5f},
                               {kChorusStereoWidth, 0.5f},
                               {kChorusStereoRate, 0.3f},
                               {kChorusDryWet, 0.5f}});
}
void BM_PlateReverb(benchmark::State& s) {
    RunSecond<PlateReverbState>(s, {{kReverbInGain, 0.8f},
                                    {kReverbDamping, 0.3f},
                                    {kReverbBrightness, 0.7f},
                                    {kReverbDiffusion, 0.6f},
                                    {kReverbDecay, 0.8f},
                                    {kReverbFeedback, 0.5f},
                                    {kReverbTime, 0.2f},
                                    {kReverbDryWet, 0.4f}});
}

} // namespace

BENCHMARK(BM_StereoDelay)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DualPhaser)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DubDelay)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Flanger)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Chorus)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PlateReverb)->Unit(benchmark::kMicrosecond);
