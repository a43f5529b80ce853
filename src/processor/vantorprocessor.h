#pragma once
// The processor: construction of the engine, parameter routing and state,
// block rendering, note handling and host feedback.
#include "processor/hostinterface.h"
#include "processor/modules/paraminfoloader.h"
#include "processor/modules/vcf.h"
#include "processor/modules/voices.h"
#include "processor/processcontext.h"

#include <memory>
#include <string>
#include <vector>

namespace Norvell::Vantor {

class SignalBank;
struct ModuleTypeInfo;
struct OscillatorState;

class VantorProcessor final : public Processor::IProcessor_V3 {
public:
    class Modules;

    VantorProcessor();

    // IProcessor
    Processor::ProcessorInfo* GetProcessorInfo() override { return &info; }
    bool OptionalQueryA() override { return false; }
    bool SetSampleRate(const float* rate) override;
    bool Initialize(uint64_t hostValue) override;
    bool Terminate() override { return OnTerminate(); }
    bool SetState(const void* data, uint64_t size) override;
    bool GetState(void* data, uint64_t* size) override;
    bool GetParam(uint32_t id, float* value) override;
    bool SetParam(uint32_t id, float value) override;
    bool GetParamInfo(uint32_t index, Processor::ParamInfo* out) override;
    void* Release(uint32_t flags) override;
    // IProcessor_V2
    uint32_t GetInterfaceVersion() override { return VANTOR_INTERFACE_VERSION; }
    uint64_t GetParamCount() override { return paramInfos.size(); }
    bool OptionalQueryD() override { return false; }
    bool ProcessMidiMessage(const Processor::MidiEvent* event) override;
    bool OnInitialize() override { return true; }
    bool OnTerminate() override { return true; }
    bool OptionalQueryE() override { return false; }
    bool OptionalHookF() override { return true; }
    // IProcessor_V3
    bool UpdateVoiceSetup() override;
    void GetChangedValues(const Processor::ValueChange** list, int32_t* count) override;
    bool GetOptionalDataA(uint64_t* pointer, uint32_t* size) override;
    bool GetOptionalDataB(uint64_t* pointer, uint32_t* size) override;
    uint32_t GetBlockSize() override { return info.blockSize; }
    bool Render(const Processor::RenderContext* ctx) override;

    // Binds a module parameter: 0 bound, 3 not bound, 4 instance number not parsable.
    int32_t SetParamSrc(const std::string& instanceName, const std::string& paramName, uint32_t id,
                        const float* value);

    // Engine internals, reachable for tests.
    void AllNotesOff();
    void FlushDeferredNoteOffs();
    void SetPresetMode(bool on);
    bool InitFailed() const { return initFailed; }
    VoiceState& Voices() { return voiceState; }
    Modules& ModuleRegistry() { return *modules; }
    SignalBank& Signals() { return *signals; }
    const ProcessContext& Context() const { return processContext; }
    // Parameter id by host-facing name, kUnboundId when absent.
    uint32_t FindParamId(const std::string& name) const;
    // Voice chains and effects reset because a block of theirs was not finite.
    uint64_t HealedBlocks() const { return healedBlocks; }

    // Sample rates the engine accepts, in Hz.
    static constexpr float kMinSampleRate = 8000.0f;
    static constexpr float kMaxSampleRate = 768000.0f;
    static bool AcceptedRate(float rate) {
        return rate >= kMinSampleRate && rate <= kMaxSampleRate;
    }

    static constexpr size_t kDeferredNoteOffCapacity = 1536;

private:
    ~VantorProcessor();
    void Construct();
    void BindParameters();
    void RenderBlock();
    // The filter call of one voice: its input and output positions.
    struct FilterWiring {
        float* in[kVcfInputCount];
        float* out[1];
    };
    void RenderVoices();
    bool RandomDrawsKeepOrder(const int* enabled, int count) const;
    // Oscillators of inactive voices whose phase is still to be advanced.
    struct RestingOscillators {
        OscillatorState* states[2 * kVoiceCount];
        int count;
    };
    VcfCall RenderVoiceFront(int v, FilterWiring& wiring, RestingOscillators& resting);
    void RenderLaneLfos(const int* voices, int count);
    void RenderVoiceBack(int v);
    bool Vca1Silent(int v) const;
    float* SelectedSource(int v, int32_t index) const;
    void TriggerInputs(int v, float** triggers) const;
    uint32_t SourcesInUse(int v) const;
    bool SourceInUse(int v, int source) const;
    // Resets voice v's chain after a non-finite block; the caller drops the block.
    void HealVoice(int v);
    // Logs the resets counted by Render since the last report; never called from Render.
    void ReportHealing();
    float* Value(uint32_t id) const;
    // True for null and for a pointer to a whole value inside the store.
    bool InStore(const float* value) const;
    // The binding slot of a module parameter and its record; null members
    // when there is none.
    struct ParamSlot {
        const float** bound = nullptr;
        uint32_t* id = nullptr;
        ParamSlots record{};
    };
    ParamSlot SlotOf(const ModuleTypeInfo& typeInfo, int instance, const std::string& paramName);

    // A voice's parameter slot that preset mode points at the voice's own
    // value, and otherwise at voice 0's, resolved once at construction.
    struct PresetModeLink {
        const float** slot;
        uint32_t* idSlot;
        const float* own;
        const float* voice0;
        uint32_t ownId;
    };

    // Must stay the first member: hosts read it right after the table pointer.
    Processor::ProcessorInfo info;

    std::vector<Processor::ParamInfo> paramInfos;
    std::vector<Processor::ParamSource> paramSources;
    std::vector<PresetModeLink> presetModeLinks;
    std::vector<uint64_t> valueOffsets;
    std::vector<uint64_t> valueSizes;
    std::unique_ptr<uint8_t[]> valueStore;
    uint64_t valueStoreSize = 0;
    // Bumped by every write to the value store; the module records bound into
    // it skip their change test while it stands still.
    uint32_t valueGeneration = 0;
    ProcessContext processContext;
    VoiceState voiceState;
    std::unique_ptr<Modules> modules;
    std::unique_ptr<SignalBank> signals;
    Processor::ValueChange voiceGateShadow[kVoiceCount];
    Processor::ValueChange noteColorShadow[128];
    Processor::ValueChange changeList[kVoiceCount + 128];
    uint32_t deferredNoteOffs[kDeferredNoteOffCapacity] = {};
    float keyPressure[128] = {};
    uint64_t deferredNoteOffCount = 0;
    bool sustainWasOn = false;
    uint32_t sourcesInUse[kVoiceCount] = {}; // bit s: source s of the voice is read
    uint32_t lfosInLanes[kVoiceCount] = {};  // bit k: LFO k of the voice ran in lanes this block

    bool initFailed = false;
    float dcState[2] = {};
    float dcCoefficient = 0.0f;
    float dcRate = 0.0f;
    uint64_t healedBlocks = 0;
    uint64_t healedReported = 0;
};

} // namespace Norvell::Vantor
