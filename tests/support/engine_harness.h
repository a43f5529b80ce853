#pragma once
// Drives a processor the way a host does, for tests and benchmarks: every
// block is UpdateVoiceSetup, then the queued MIDI messages, then Render.
#include "processor/vantorprocessor.h"

#include <cstdint>
#include <string>
#include <vector>

namespace VantorTest {

struct Stereo {
    std::vector<float> left;
    std::vector<float> right;
};

class EngineHarness {
public:
    explicit EngineHarness(float sampleRate = 44100.0f);
    ~EngineHarness();
    EngineHarness(const EngineHarness&) = delete;
    EngineHarness& operator=(const EngineHarness&) = delete;

    Norvell::Vantor::VantorProcessor& Processor() { return *processor; }

    // Parameter id by host-facing name; throws std::invalid_argument when unknown.
    uint32_t Id(const std::string& name) const;
    void Set(const std::string& name, float value);
    float Get(const std::string& name);

    // Queued until the next block, after its UpdateVoiceSetup.
    void NoteOn(int key, int velocity = 100, int channel = 0);
    void NoteOff(int key, int velocity = 0, int channel = 0);
    void Midi(uint32_t message);

    Stereo RenderBlocks(int blocks);
    // One block into caller-owned buffers (no allocation; for allocation tests).
    void RenderBlock(float* left, float* right, uint32_t frames = 32);

    // Voice 1 alone, zone 1 over the whole keyboard in lowest-free mode,
    // preset mode on, unit volume, centre pan, centred tuning, both VCA gains
    // at 1 and master volume 1. Tests add their module's settings.
    void SetupSingleVoicePatch();
    // Every voice enabled in zone 1, preset mode off (voice 1's parameters
    // play on all voices), otherwise as SetupSingleVoicePatch.
    void SetupPolyPatch();
    // SetupPolyPatch with a sawtooth through the filter and envelope 1 on
    // VCA 1; with fullModulation every LFO, ramp and tracker feeds a destination.
    void SetupModulatedPatch(bool fullModulation);

    float sampleRate;
    float tempo = 120.0f;

private:
    Norvell::Vantor::VantorProcessor* processor;
    std::vector<uint32_t> pendingMidi;
};

} // namespace VantorTest
