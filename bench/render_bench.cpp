// Cost of one 32-frame block render through the processor, with and without
// notes and with the modulation sources busy.
#include "processor/vantorprocessor.h"

#include <benchmark/benchmark.h>

#include <string>

namespace {

using Norvell::Vantor::VantorProcessor;

struct Engine {
    Engine() {
        p = new VantorProcessor();
        p->Initialize(0);
        const float rate = 44100.0f;
        p->SetSampleRate(&rate);
    }
    ~Engine() { p->Release(VANTOR_RELEASE_FREE); }
    void Set(const std::string& name, float value) { p->SetParam(p->FindParamId(name), value); }
    void Patch(bool fullModulation) {
        Set("master_volume", 0.5f);
        Set("master_fine_tune", 0.5f);
        Set("pitchbend", 0.5f);
        for (int v = 1; v <= 12; ++v) {
            const std::string n = "voice" + std::to_string(v) + "_";
            Set(n + "isenable", 1.0f);
            Set(n + "volume", 0.5f);
            Set(n + "pan", 0.5f);
            Set(n + "detune", 0.5f);
            Set(n + "transpose", 0.6f);
            Set(n + "vca2_gain", 1.0f);
        }
        Set("presetmode", 0.0f);
        Set("zone1_max_note", 1.0f);
        Set("zone1_playmode", 2.5f / 6.0f);
        Set("voice1_osc1_saw-on", 1.0f);
        Set("voice1_osc1_keyboard_follow", 1.0f);
        Set("voice1_osc1_freq", 12.0f / 63.0f);
        Set("voice1_osc1_volume", 0.5f);
        Set("voice1_vcf_cutoff", 0.8f);
        Set("voice1_vcf_type", 1.5f / 15.0f);
        Set("voice1_env1_sustain", 0.7f);
        Set("voice1_env1_amp", 1.0f);
        Set("voice1_env1_release", 0.3f);
        Set("voice1_matrix1_src", 11.5f / 28.0f);
        Set("voice1_matrix1_dest", 9.5f / 48.0f);
        Set("voice1_matrix1_amount", 1.0f);
        if (fullModulation) {
            // Every LFO, ramp and tracker of every voice feeds a destination.
            int slot = 2;
            auto route = [&](int source, int dest) {
                const std::string m = "voice1_matrix" + std::to_string(slot++) + "_";
                Set(m + "src", (source + 0.5f) / 28.0f);
                Set(m + "dest", (dest + 0.5f) / 48.0f);
                Set(m + "amount", 0.6f);
            };
            for (int k = 0; k < 5; ++k) route(16 + k, 1 + k % 6);
            for (int k = 0; k < 4; ++k) route(24 + k, 7 + k % 2);
            for (int k = 0; k < 3; ++k) route(21 + k, 11);
            for (int k = 1; k <= 5; ++k) Set("voice1_lfo" + std::to_string(k) + "_speed", 0.2f * k);
            for (int k = 1; k <= 3; ++k)
                Set("voice1_track" + std::to_string(k) + "_input_selector", 8.5f / 28.0f);
        }
    }
    void Block(bool withNotes) {
        p->UpdateVoiceSetup();
        if (withNotes && !notesSent) {
            for (int k = 0; k < 12; ++k) {
                const VantorMidiEvent e{0x90u | static_cast<uint32_t>(48 + 3 * k) << 8 | 100u << 16,
                                        0, 0};
                p->ProcessMidiMessage(&e);
            }
            notesSent = true;
        }
        float* outputs[2] = {left, right};
        VantorRenderContext ctx{};
        ctx.outputs = outputs;
        ctx.frameCount = 32;
        ctx.sampleRate = 44100.0f;
        ctx.tempo = 120.0f;
        p->Render(&ctx);
    }
    VantorProcessor* p;
    bool notesSent = false;
    float left[32];
    float right[32];
};

void RunBlocks(benchmark::State& state, bool notes, bool fullModulation) {
    Engine engine;
    engine.Patch(fullModulation);
    for (int i = 0; i < 64; ++i) engine.Block(notes);
    for (auto _ : state) {
        engine.Block(notes);
        benchmark::DoNotOptimize(engine.left[0]);
    }
    // Real-time factor: audio seconds rendered per second of CPU.
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
