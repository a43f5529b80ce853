#include "processor/vantorprocessor.h"

#include "basictools/exception.h"
#include "basictools/logger/log.h"
#include "basictools/resources.h"
#include "basictools/xml_tools/xml_tools.h"
#include "processor/modules.h"
#include "processor/signalbank.h"

#include <cmath>
#include <cstring>
#include <map>
#include <tuple>

namespace Norvell::Vantor {

namespace {

const char* const kAudioEngine = "audio_engine";
// Far above any description's needs; keeps the offsets clear of overflow.
constexpr uint64_t kMaxValueStoreSize = uint64_t{1} << 30;

// Splits "type-N" at its last '-'; a name without '-' is parsed whole.
void SplitInstanceName(const std::string& instanceName, std::string& type, std::string& number) {
    const size_t dash = instanceName.rfind('-');
    if (dash == std::string::npos) {
        type = instanceName;
        number = instanceName;
    } else {
        type = instanceName.substr(0, dash);
        number = instanceName.substr(dash + 1);
    }
}

} // namespace

VantorProcessor::VantorProcessor() {
    Construct();
}

void VantorProcessor::Construct() {
    info = {0, 2, 0, 0, VANTOR_BLOCK_SIZE, 3, 0};
    processContext = ProcessContext{};
    voiceState.enabledVoices = 0xFFF;
    ResetVoiceState(voiceState);
    for (Processor::ValueChange& record : voiceGateShadow) record = {kUnboundId, 0, 0.0f};
    for (Processor::ValueChange& record : noteColorShadow) record = {kUnboundId, 0, 0.0f};
    for (Processor::ValueChange& record : changeList) record = {kUnboundId, 0, 0.0f};
    deferredNoteOffCount = 0;
    sustainWasOn = false;

    try {
        Resources* resources = Resources::GetInstance();
        std::string folder;
        std::string descriptionPath;
        if (resources->FindFile("vantorengine.xml", folder))
            descriptionPath = folder + "vantorengine.xml";
        std::string confPath = "../../../basictools/logger/log.conf";
        folder.clear();
        if (resources->FindFile("log.conf", folder)) confPath = folder + "log.conf";
        CLog::Locked()->Configure(confPath, "");

        modules = std::make_unique<Modules>(voiceState);
        signals = std::make_unique<SignalBank>();

        Processor::ParamInfoLoader loader;
        if (!loader.LoadEngineDescription(descriptionPath))
            VANTOR_LOG(kAudioEngine, LOG_ERROR,
                       "could not load xml of parameters vantorengine.xml");

        paramInfos = loader.ParamInfos();
        if (paramInfos.empty())
            throw CException("Parameter not found",
                             "Norvell::Vantor::VantorProcessor::VantorProcessor", 204);

        VANTOR_LOG("engine_description", LOG_ERROR,
                   "Audio Engine : " << info.paramCount << " params");
        VANTOR_LOG("engine_description", LOG_ERROR,
                   "Audio Engine : " << info.inputCount << " inputs");
        VANTOR_LOG("engine_description", LOG_ERROR,
                   "Audio Engine : " << info.outputCount << " outputs");

        valueOffsets.reserve(paramInfos.size());
        valueSizes.reserve(paramInfos.size());
        uint64_t offset = 0;
        for (const Processor::ParamInfo& param : paramInfos) {
            const uint64_t size = param.dataSize > 0 ? static_cast<uint64_t>(param.dataSize) : 0;
            if (size > static_cast<uint64_t>(Processor::kMaxParamDataSize) ||
                offset > kMaxValueStoreSize - size)
                throw CException("value store too large",
                                 "Norvell::Vantor::VantorProcessor::VantorProcessor", 204);
            valueOffsets.push_back(offset);
            valueSizes.push_back(size);
            offset += size;
        }
        valueStoreSize = offset;
        valueStore.reset(new uint8_t[valueStoreSize + 4]());

        paramSources = loader.ParamSources();
        BindParameters();

        for (int z = kUserZoneCount; z < kZoneCount; ++z) {
            ZoneRecord& zone = voiceState.zones[z];
            zone.range.values[0] = 0.0f;
            zone.range.values[1] = 1.0f;
            zone.range.values[2] = static_cast<float>(z - kUserZoneCount) / 16.0f;
            SetPlayMode(zone, voiceState, 1.0f);
        }
        processContext.voiceState = &voiceState;
    } catch (...) {
        initFailed = true;
    }

    if (initFailed)
        VANTOR_LOG(kAudioEngine, LOG_ERROR, "ENGINE INIT FAILED");
    else
        VANTOR_LOG(kAudioEngine, LOG_NOTICE, "ENGINE INIT OK");
    VANTOR_LOG(kAudioEngine, LOG_INFO, "CTOR VantorProcessor\n");
}

void VantorProcessor::BindParameters() {
    // Voice links by (parameter, instance, voice); the first source of a key wins.
    using LinkKey = std::tuple<std::string, std::string, uint32_t>;
    struct Link {
        uint32_t voice0Id;
        uint32_t ownId;
        ParamSlot slot;
    };
    std::map<LinkKey, Link> links;
    std::map<std::tuple<std::string, uint32_t, std::string>, uint32_t> voice0Ids;
    for (uint32_t id = 0; id < paramSources.size(); ++id) {
        const Processor::ParamSource& source = paramSources[id];
        if (source.instance.empty() || source.param.empty()) continue;
        if (SetParamSrc(source.instance, source.param, id, Value(id)) != 0) {
            VANTOR_LOG(kAudioEngine, LOG_ERROR,
                       "Failed to set param " << source.instance << " - " << source.param);
            initFailed = true;
        }
        std::string type;
        std::string number;
        SplitInstanceName(source.instance, type, number);
        const int instance = XmlTools::StoI(number);
        const ModuleTypeInfo* typeInfo = FindModuleType(type);
        if (typeInfo == nullptr || typeInfo->perVoice == 0) continue;
        const uint32_t voice = static_cast<uint32_t>(instance / typeInfo->perVoice);
        const uint32_t index = static_cast<uint32_t>(instance % typeInfo->perVoice);
        if (voice == 0) {
            voice0Ids[{source.param, index, type}] = id;
            continue;
        }
        const LinkKey key{source.param, source.instance, voice};
        if (links.count(key) != 0) continue;
        const auto found = voice0Ids.find({source.param, index, type});
        links[key] = {found == voice0Ids.end() ? 0u : found->second, id,
                      SlotOf(*typeInfo, instance, source.param)};
    }
    presetModeLinks.reserve(links.size());
    for (const auto& [key, link] : links) {
        if (link.slot.bound == nullptr) continue;
        presetModeLinks.push_back(
            {link.slot.bound, link.slot.id, Value(link.ownId), Value(link.voice0Id), link.ownId});
    }
}

VantorProcessor::ParamSlot VantorProcessor::SlotOf(const ModuleTypeInfo& typeInfo, int instance,
                                                   const std::string& paramName) {
    if (instance < 0 || instance >= typeInfo.instances) return {};
    const int paramIndex = FindModuleParam(typeInfo, paramName);
    if (paramIndex < 0 || !modules) return {};
    const ParamSlots slots = modules->SlotsOf(typeInfo, instance);
    if (static_cast<size_t>(paramIndex) >= slots.count) return {};
    return {&slots.bound[paramIndex], &slots.ids[paramIndex], slots};
}

int32_t VantorProcessor::SetParamSrc(const std::string& instanceName, const std::string& paramName,
                                     uint32_t id, const float* value) {
    std::string type;
    std::string number;
    SplitInstanceName(instanceName, type, number);
    int instance = 0;
    try {
        instance = XmlTools::StoI(number);
    } catch (const std::exception& e) {
        VANTOR_LOG(kAudioEngine, LOG_ERROR,
                   "Could not parse the instance number of the module in "
                       << instanceName << "exception : " << e.what() << "vantorprocessor"
                       << ":" << 43 << " [ "
                       << "Norvell::Vantor::VantorProcessor::SetParamSrc"
                       << " ] ");
        return 4;
    }
    VANTOR_LOG(kAudioEngine, LOG_INFO,
               "SetParamSrc " << instanceName << " - " << instance << " - " << paramName
                              << " - id:" << id);
    const ModuleTypeInfo* typeInfo = FindModuleType(type);
    if (typeInfo == nullptr) {
        VANTOR_LOG(kAudioEngine, LOG_ERROR, "this module " << type << " does not exist");
        return 3;
    }
    if (instance < 0 || instance >= typeInfo->instances) {
        VANTOR_LOG(kAudioEngine, LOG_ERROR,
                   "Out of range instance " << instance << ", this module " << instanceName
                                            << " has " << typeInfo->instances << " instances");
        return 3;
    }
    const ParamSlot slot = SlotOf(*typeInfo, instance, paramName);
    if (slot.bound == nullptr) return 3;
    *slot.bound = value;
    *slot.id = id;
    // The store's change counter covers only records bound entirely into it.
    const ParamSlots& slots = slot.record;
    if (slots.generation != nullptr) {
        bool inStore = true;
        for (size_t i = 0; i < slots.count; ++i) inStore = inStore && InStore(slots.bound[i]);
        *slots.generation = inStore ? &valueGeneration : nullptr;
    }
    ++valueGeneration;
    return 0;
}

VantorProcessor::~VantorProcessor() {
    ReportHealing();
    VANTOR_LOG(kAudioEngine, LOG_INFO, "DTOR VantorProcessor\n");
    modules.reset();
    signals.reset();
    CLog::DestroyInstance();
}

void* VantorProcessor::Release(uint32_t flags) {
    this->~VantorProcessor();
    if ((flags & VANTOR_RELEASE_FREE) != 0) ::operator delete(this);
    return this;
}

bool VantorProcessor::InStore(const float* value) const {
    if (value == nullptr) return true;
    const auto* begin = valueStore.get();
    const auto* bytes = reinterpret_cast<const uint8_t*>(value);
    return begin != nullptr && bytes >= begin && bytes + sizeof(float) <= begin + valueStoreSize;
}

float* VantorProcessor::Value(uint32_t id) const {
    return reinterpret_cast<float*>(valueStore.get() + valueOffsets[id]);
}

uint32_t VantorProcessor::FindParamId(const std::string& name) const {
    for (uint32_t id = 0; id < paramInfos.size(); ++id)
        if (std::strncmp(paramInfos[id].name, name.c_str(), VANTOR_PARAM_NAME) == 0) return id;
    return kUnboundId;
}

bool VantorProcessor::SetSampleRate(const float* rate) {
    ReportHealing();
    if (rate == nullptr) return true;
    float value = 0.0f;
    std::memcpy(&value, rate, sizeof value);
    if (!AcceptedRate(value)) {
        VANTOR_LOG(kAudioEngine, LOG_ERROR, "sample rate " << value << " Hz refused");
        return false;
    }
    processContext.sampleRate = value;
    return true;
}

void VantorProcessor::ReportHealing() {
    if (healedBlocks == healedReported) return;
    VANTOR_LOG(kAudioEngine, LOG_ERROR,
               healedBlocks - healedReported
                   << " voice or effect blocks were not finite and their state was reset");
    healedReported = healedBlocks;
}

bool VantorProcessor::Initialize(uint64_t hostValue) {
    ReportHealing();
    info.hostValue = hostValue;
    info.paramCount = static_cast<uint32_t>(GetParamCount());
    return OnInitialize();
}

bool VantorProcessor::GetParamInfo(uint32_t index, Processor::ParamInfo* out) {
    if (index >= paramInfos.size()) return false;
    if (out != nullptr) *out = paramInfos[index];
    return true;
}

bool VantorProcessor::GetOptionalDataA(uint64_t* pointer, uint32_t* size) {
    if (pointer != nullptr) *pointer = 0;
    if (size != nullptr) *size = 0;
    return true;
}

bool VantorProcessor::GetOptionalDataB(uint64_t* pointer, uint32_t* size) {
    return GetOptionalDataA(pointer, size);
}

bool VantorProcessor::SetParam(uint32_t id, float value) {
    if (!std::isfinite(value)) return false;
    bool stored = false;
    if (id < paramInfos.size() && valueSizes[id] == 4) {
        std::memcpy(Value(id), &value, sizeof value);
        ++valueGeneration;
        stored = true;
    }
    if (!modules) return stored;
    const ParamRecord<16>& master = modules->master;
    auto isMaster = [&](MasterParam p) {
        return master.bound[p] != nullptr && master.ids[p] == id;
    };
    if (isMaster(kMasterPanic)) {
        if (value == 1.0f) AllNotesOff();
    } else if (isMaster(kMasterAllNotesOff) || isMaster(kMasterPresetLoading)) {
        AllNotesOff();
    } else if (isMaster(kMasterPresetMode)) {
        SetPresetMode(value > 0.0f);
    }
    return stored;
}

bool VantorProcessor::GetParam(uint32_t id, float* value) {
    if (id >= paramInfos.size()) {
        VANTOR_LOG("engine", LOG_ERROR, "cannot access data of param " << id);
        return false;
    }
    float v = 0.0f;
    const uint64_t available = valueStoreSize - valueOffsets[id];
    std::memcpy(&v, Value(id), available < 4 ? available : 4);
    if (value != nullptr) *value = v;
    return true;
}

bool VantorProcessor::GetState(void* data, uint64_t* size) {
    ReportHealing();
    if (size == nullptr) return true;
    if (*size == 0)
        *size = valueStoreSize;
    else if (data != nullptr && valueStoreSize > 0)
        std::memcpy(data, valueStore.get(), valueStoreSize);
    return true;
}

bool VantorProcessor::SetState(const void* data, uint64_t size) {
    ReportHealing();
    if (data == nullptr) return true;
    if (size != valueStoreSize) {
        VANTOR_LOG(kAudioEngine, LOG_ERROR,
                   "state refused: " << size << " bytes, expected " << valueStoreSize);
        return false;
    }
    const auto* bytes = static_cast<const uint8_t*>(data);
    for (size_t id = 0; id < valueSizes.size(); ++id) {
        if (valueSizes[id] != 4) continue;
        float value;
        std::memcpy(&value, bytes + valueOffsets[id], sizeof value);
        if (!std::isfinite(value)) {
            VANTOR_LOG(kAudioEngine, LOG_ERROR,
                       "state refused: value of parameter " << id << " is not finite");
            return false;
        }
    }
    if (size > 0) std::memcpy(valueStore.get(), data, size);
    ++valueGeneration;
    return true;
}

void VantorProcessor::AllNotesOff() {
    ResetVoiceState(voiceState);
    if (modules) {
        modules->ResetEffects();
        modules->ResetControllers();
        for (int v = 0; v < kVoiceCount; ++v) modules->ResetVoiceChain(v);
    }
    dcState[0] = 0.0f;
    dcState[1] = 0.0f;
    for (float& pressure : keyPressure) pressure = 0.0f;
}

void VantorProcessor::SetPresetMode(bool on) {
    for (const PresetModeLink& link : presetModeLinks) {
        *link.slot = on ? link.own : link.voice0;
        *link.idSlot = link.ownId;
    }
    // Both targets lie in the value store, so each record's change counter
    // binding stays as it is; the records only have to look again.
    ++valueGeneration;
}

bool VantorProcessor::UpdateVoiceSetup() {
    if (!modules) return true;
    modules->master.Refresh();
    for (ParamRecord<8>& voice : modules->voices) voice.Refresh();
    for (int z = 0; z < kUserZoneCount; ++z) {
        ParamRecord<2>& zone = modules->zones[z];
        zone.Refresh();
        voiceState.zones[z].enableSteal = zone[kZoneEnableSteal] > 0.0f ? 1 : 0;
        SetPlayMode(voiceState.zones[z], voiceState, zone[kZonePlayMode]);
    }
    uint32_t enabled = 0;
    for (int v = 0; v < kVoiceCount; ++v) {
        const ParamRecord<8>& voice = modules->voices[v];
        const float isEnable = voice[kVoiceIsEnable];
        if (isEnable > 0.0f) AddVoice(enabled, v);
        if (isEnable == 0.0f || std::isnan(isEnable)) {
            RemoveVoice(voiceState.gateVoices, v);
            RemoveVoice(voiceState.activeVoices, v);
            voiceState.voiceNoteMemory[v] = kNoKey;
            voiceState.voiceMessage[v] = 0;
        }
        voiceState.voiceZone[v] = StepIndex(voice[kVoiceZone], 23.0f, kZoneCount - 1);
    }
    voiceState.enabledVoices = enabled;
    voiceState.triggerVoices = 0;
    voiceState.releaseVoices = 0;
    return true;
}

} // namespace Norvell::Vantor
