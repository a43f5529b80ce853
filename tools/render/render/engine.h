#pragma once
// Loads vantorengine.so with dlopen and drives one processor through the slot
// table of <vantor/host.h>, as any host does.
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <vantor/host.h>

#include "render/paramdirectory.h"
#include "render/renderloop.h"

namespace Norvell::Render {

class EngineError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Engine final : public Host {
public:
    // Loads the library and its factory. Throws EngineError.
    explicit Engine(const std::string& libraryPath);
    ~Engine() override;
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    // Creates the processor, then Initialize and SetSampleRate. Throws EngineError.
    void Start(float sampleRate);

    std::string Description() const; // factory name and version
    uint32_t BlockSize() const;
    ParamDirectory ReadParams() const;
    bool GetParam(uint32_t id, float& value) const;
    std::vector<uint8_t> GetState() const;
    bool SetState(const std::vector<uint8_t>& blob); // false when refused

    // Ids whose value 1.0 in the change list marks a sounding voice (voiceN_ison).
    void WatchVoices(std::vector<uint32_t> ids);
    int SoundingVoices() const;

    void SetParam(uint32_t id, float value) override;
    void UpdateVoiceSetup() override;
    void ProcessMidi(uint32_t message) override;
    void Render(float* left, float* right, uint32_t frames, float sampleRate, float tempo) override;
    void CollectChanges() override;

private:
    void* library_ = nullptr;
    VantorFactory* factory_ = nullptr;
    VantorProcessor* processor_ = nullptr;
    std::vector<uint32_t> voiceIds_;
    std::vector<bool> voiceOn_;
};

} // namespace Norvell::Render
