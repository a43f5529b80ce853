#include "hostcore/engine.h"

#include <algorithm>
#include <cstring>
#include <dlfcn.h>

namespace Norvell::HostCore {

namespace {

std::string Text(const char* field, size_t size) {
    return std::string(field, strnlen(field, size));
}

} // namespace

std::string EnginePathIn(const std::string& folder) {
    return folder.empty() || folder.back() == '/' ? folder + "vantorengine.so"
                                                  : folder + "/vantorengine.so";
}

Engine::Engine(const std::string& libraryPath) {
    dlerror();
    library_ = dlopen(libraryPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library_) {
        const char* why = dlerror();
        throw EngineError("cannot load the engine '" + libraryPath + "': " + (why ? why : "?"));
    }
    auto entry =
        reinterpret_cast<VantorGetProcessorFactoryFn>(dlsym(library_, VANTOR_FACTORY_SYMBOL));
    if (!entry) {
        dlclose(library_);
        throw EngineError("'" + libraryPath + "' is not a Vantor engine (no " +
                          VANTOR_FACTORY_SYMBOL + ")");
    }
    factory_ = entry();
    if (!factory_) {
        dlclose(library_);
        throw EngineError("the engine '" + libraryPath + "' returned no processor factory");
    }
    const uint32_t version =
        VANTOR_SLOT(factory_, VANTOR_FACTORY_GET_VERSION, VantorFactoryGetVersionFn)(factory_);
    if (version != VANTOR_FACTORY_VERSION) {
        VANTOR_SLOT(factory_, VANTOR_FACTORY_RELEASE, VantorReleaseFn)
        (factory_, VANTOR_RELEASE_FREE);
        dlclose(library_);
        throw EngineError("the engine '" + libraryPath + "' has factory version " +
                          std::to_string(version) + ", this host needs " +
                          std::to_string(VANTOR_FACTORY_VERSION));
    }
}

Engine::~Engine() {
    if (processor_) VANTOR_SLOT(processor_, VANTOR_SLOT_RELEASE, VantorReleaseFn)
    (processor_, VANTOR_RELEASE_FREE);
    if (factory_) VANTOR_SLOT(factory_, VANTOR_FACTORY_RELEASE, VantorReleaseFn)
    (factory_, VANTOR_RELEASE_FREE);
    if (library_) dlclose(library_);
}

void Engine::Start(float sampleRate) {
    processor_ =
        VANTOR_SLOT(factory_, VANTOR_FACTORY_CREATE_PROCESSOR, VantorFactoryCreateFn)(factory_);
    if (!processor_) throw EngineError("the engine could not create a processor");
    const uint32_t version =
        VANTOR_SLOT(processor_, VANTOR_SLOT_GET_INTERFACE_VERSION, VantorU32Fn)(processor_);
    if (version < VANTOR_INTERFACE_VERSION)
        throw EngineError("the engine's processor has interface version " +
                          std::to_string(version) + ", this host needs " +
                          std::to_string(VANTOR_INTERFACE_VERSION));
    VANTOR_SLOT(processor_, VANTOR_SLOT_INITIALIZE, VantorInitializeFn)(processor_, 0);
    VANTOR_SLOT(processor_, VANTOR_SLOT_SET_SAMPLE_RATE, VantorSetSampleRateFn)
    (processor_, &sampleRate);
}

std::string Engine::Description() const {
    return Text(factory_->name, sizeof factory_->name) + " " +
           Text(factory_->version, sizeof factory_->version);
}

uint32_t Engine::BlockSize() const {
    return VANTOR_SLOT(processor_, VANTOR_SLOT_GET_BLOCK_SIZE, VantorU32Fn)(processor_);
}

ParamDirectory Engine::ReadParams() const {
    const uint64_t count =
        VANTOR_SLOT(processor_, VANTOR_SLOT_GET_PARAM_COUNT, VantorGetParamCountFn)(processor_);
    auto getInfo = VANTOR_SLOT(processor_, VANTOR_SLOT_GET_PARAM_INFO, VantorGetParamInfoFn);
    std::vector<ParamDesc> params;
    params.reserve(count);
    for (uint32_t id = 0; id < count; ++id) {
        VantorParamInfo info{};
        if (!getInfo(processor_, id, &info)) break;
        params.push_back({Text(info.name, sizeof info.name), info.nbValues});
    }
    return ParamDirectory(std::move(params));
}

bool Engine::GetParam(uint32_t id, float& value) const {
    return VANTOR_SLOT(processor_, VANTOR_SLOT_GET_PARAM, VantorGetParamFn)(processor_, id, &value);
}

std::vector<uint8_t> Engine::GetState() const {
    auto getState = VANTOR_SLOT(processor_, VANTOR_SLOT_GET_STATE, VantorGetStateFn);
    uint64_t size = 0;
    getState(processor_, nullptr, &size);
    std::vector<uint8_t> blob(size);
    if (size > 0) getState(processor_, blob.data(), &size);
    return blob;
}

bool Engine::SetState(const std::vector<uint8_t>& blob) {
    return VANTOR_SLOT(processor_, VANTOR_SLOT_SET_STATE, VantorSetStateFn)(processor_, blob.data(),
                                                                            blob.size());
}

void Engine::WatchVoices(const ParamDirectory& params) {
    voiceIds_.clear();
    for (int v = 1; v <= 12; ++v)
        if (auto id = params.Find("voice" + std::to_string(v) + "_ison")) voiceIds_.push_back(*id);
    voiceOn_.assign(voiceIds_.size(), false);
}

int Engine::SoundingVoices() const {
    return int(std::count(voiceOn_.begin(), voiceOn_.end(), true));
}

void Engine::SetParam(uint32_t id, float value) {
    VANTOR_SLOT(processor_, VANTOR_SLOT_SET_PARAM, VantorSetParamFn)(processor_, id, value);
}

void Engine::UpdateVoiceSetup() {
    VANTOR_SLOT(processor_, VANTOR_SLOT_UPDATE_VOICE_SETUP, VantorBoolFn)(processor_);
}

void Engine::ProcessMidi(uint32_t message) {
    const VantorMidiEvent event{message, 0, 0};
    VANTOR_SLOT(processor_, VANTOR_SLOT_PROCESS_MIDI_MESSAGE, VantorProcessMidiFn)
    (processor_, &event);
}

void Engine::Render(float* left, float* right, uint32_t frames, float sampleRate, float tempo) {
    float* outputs[2] = {left, right};
    VantorRenderContext context{};
    context.outputs = outputs;
    context.frameCount = frames;
    context.sampleRate = sampleRate;
    context.tempo = tempo;
    VANTOR_SLOT(processor_, VANTOR_SLOT_RENDER, VantorRenderFn)(processor_, &context);
}

void Engine::CollectChanges() {
    const VantorValueChange* list = nullptr;
    int32_t count = 0;
    VANTOR_SLOT(processor_, VANTOR_SLOT_GET_CHANGED_VALUES, VantorGetChangedValuesFn)
    (processor_, &list, &count);
    if (!list) return;
    for (int32_t i = 0; i < count; ++i) {
        if (observer_) observer_->OnChange(list[i].id, list[i].value);
        auto it = std::find(voiceIds_.begin(), voiceIds_.end(), list[i].id);
        if (it != voiceIds_.end()) voiceOn_[size_t(it - voiceIds_.begin())] = list[i].value == 1.0f;
    }
}

void ApplyPerformanceDefaults(Engine& engine, const ParamDirectory& params) {
    if (auto id = params.Find("pitchbend")) engine.SetParam(*id, 0.5f);
    if (auto id = params.Find("sustain-hold")) engine.SetParam(*id, 1.0f);
}

} // namespace Norvell::HostCore
