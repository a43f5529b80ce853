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

} // namespace VantorTest
