#include "engine_harness.h"

#include <stdexcept>

namespace VantorTest {

EngineHarness::EngineHarness(float rate) : sampleRate(rate) {
    processor = new Norvell::Vantor::VantorProcessor();
    processor->Initialize(0);
    processor->SetSampleRate(&sampleRate);
    pendingMidi.reserve(4096);
}

EngineHarness::~EngineHarness() {
    processor->Release(VANTOR_RELEASE_FREE);
}

uint32_t EngineHarness::Id(const std::string& name) const {
    const uint32_t id = processor->FindParamId(name);
    if (id == Norvell::Vantor::kUnboundId) throw std::invalid_argument("unknown parameter " + name);
    return id;
}

void EngineHarness::Set(const std::string& name, float value) {
    processor->SetParam(Id(name), value);
}

float EngineHarness::Get(const std::string& name) {
    float value = 0.0f;
    processor->GetParam(Id(name), &value);
    return value;
}

void EngineHarness::NoteOn(int key, int velocity, int channel) {
    Midi(0x90u | static_cast<uint32_t>(channel & 0xF) | static_cast<uint32_t>(key & 0x7F) << 8 |
         static_cast<uint32_t>(velocity & 0x7F) << 16);
}

void EngineHarness::NoteOff(int key, int velocity, int channel) {
    Midi(0x80u | static_cast<uint32_t>(channel & 0xF) | static_cast<uint32_t>(key & 0x7F) << 8 |
         static_cast<uint32_t>(velocity & 0x7F) << 16);
}

void EngineHarness::Midi(uint32_t message) {
    pendingMidi.push_back(message);
}

void EngineHarness::RenderBlock(float* left, float* right, uint32_t frames) {
    processor->UpdateVoiceSetup();
    for (uint32_t message : pendingMidi) {
        const VantorMidiEvent event{message, 0, 0};
        processor->ProcessMidiMessage(&event);
    }
    pendingMidi.clear();
    float* outputs[2] = {left, right};
    VantorRenderContext ctx{};
    ctx.outputs = outputs;
    ctx.frameCount = frames;
    ctx.sampleRate = sampleRate;
    ctx.tempo = tempo;
    processor->Render(&ctx);
}

Stereo EngineHarness::RenderBlocks(int blocks) {
    Stereo out;
    out.left.resize(static_cast<size_t>(blocks) * 32);
    out.right.resize(static_cast<size_t>(blocks) * 32);
    for (int b = 0; b < blocks; ++b)
        RenderBlock(out.left.data() + 32 * b, out.right.data() + 32 * b);
    return out;
}

void EngineHarness::SetupSingleVoicePatch() {
    Set("master_volume", 1.0f);
    Set("master_fine_tune", 0.5f);
    Set("pitchbend", 0.5f);
    for (int v = 1; v <= 12; ++v) {
        const std::string p = "voice" + std::to_string(v) + "_";
        Set(p + "isenable", v == 1 ? 1.0f : 0.0f);
        Set(p + "volume", 1.0f);
        Set(p + "pan", 0.5f);
        Set(p + "detune", 0.5f);
        Set(p + "transpose", 0.6f);
        Set(p + "zone", 0.0f);
        Set(p + "vca1_gain", 1.0f);
        Set(p + "vca2_gain", 1.0f);
        Set(p + "osc1_detune", 0.5f);
        Set(p + "osc2_detune", 0.5f);
    }
    Set("zone1_min_note", 0.0f);
    Set("zone1_max_note", 1.0f);
    Set("zone1_channel_selector", 0.0f);
    Set("zone1_playmode", 2.5f / 6.0f);
}

void EngineHarness::SetupPolyPatch() {
    SetupSingleVoicePatch();
    for (int v = 2; v <= 12; ++v) Set("voice" + std::to_string(v) + "_isenable", 1.0f);
    Set("presetmode", 0.0f);
}

void EngineHarness::SetupModulatedPatch(bool fullModulation) {
    SetupPolyPatch();
    Set("master_volume", 0.5f);
    Set("voice1_vca1_gain", 0.0f);
    Set("voice1_osc1_saw-on", 1.0f);
    Set("voice1_osc1_keyboard_follow", 1.0f);
    Set("voice1_osc1_freq", 12.0f / 63.0f);
    Set("voice1_osc1_volume", 0.5f);
    Set("voice1_vcf_cutoff", 0.8f);
    Set("voice1_vcf_type", 1.5f / 15.0f);
    Set("voice1_env1_sustain", 0.7f);
    Set("voice1_env1_amp", 1.0f);
    Set("voice1_env1_release", 0.3f);
    int slot = 1;
    auto route = [&](int source, int dest, float amount) {
        const std::string m = "voice1_matrix" + std::to_string(slot++) + "_";
        Set(m + "src", (source + 0.5f) / 28.0f);
        Set(m + "dest", (dest + 0.5f) / 48.0f);
        Set(m + "amount", amount);
    };
    route(11, 9, 1.0f);
    if (!fullModulation) return;
    // Every LFO, ramp and tracker of every voice feeds a destination.
    for (int k = 0; k < 5; ++k) route(16 + k, 1 + k % 6, 0.6f);
    for (int k = 0; k < 4; ++k) route(24 + k, 7 + k % 2, 0.6f);
    for (int k = 0; k < 3; ++k) route(21 + k, 11, 0.6f);
    for (int k = 1; k <= 5; ++k) Set("voice1_lfo" + std::to_string(k) + "_speed", 0.2f * k);
    for (int k = 1; k <= 3; ++k)
        Set("voice1_track" + std::to_string(k) + "_input_selector", 8.5f / 28.0f);
}

} // namespace VantorTest
