#pragma once
// Loads vantorengine.so with dlopen and drives one processor through the slot
// table of <vantor/host.h>, as any host does.
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <vantor/host.h>

#include "hostcore/blockprocessor.h"
#include "hostcore/paramdirectory.h"

namespace Norvell::HostCore {

class EngineError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Receives every value the engine changed itself, after each Render.
class ChangeObserver {
public:
    virtual ~ChangeObserver() = default;
    virtual void OnChange(uint32_t id, float value) = 0;
};

// The engine library's file in a folder (a plugin bundle, an install's lib folder).
std::string EnginePathIn(const std::string& folder);

class Engine final : public Host {
public:
    // Loads the library (RTLD_LOCAL, so several copies never share symbols) and its
    // factory. Throws EngineError.
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

    // Counts sounding voices from the change list: voiceN_ison at 1.0.
    void WatchVoices(const ParamDirectory& params);
    int SoundingVoices() const;
    void SetObserver(ChangeObserver* observer) { observer_ = observer; }

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
    ChangeObserver* observer_ = nullptr;
};

// Values a freshly started engine needs before a preset: the stored zero of
// pitchbend would mean a full bend down, and the sustain pedal holds notes.
void ApplyPerformanceDefaults(Engine& engine, const ParamDirectory& params);

} // namespace Norvell::HostCore
