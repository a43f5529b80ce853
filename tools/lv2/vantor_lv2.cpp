// The Vantor LV2 instrument: MIDI, parameter messages and tempo in through one
// atom port, stereo audio out, parameter feedback on the notify port and the
// whole sound in the plugin state. The engine is loaded from the bundle.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <lv2/atom/atom.h>
#include <lv2/atom/forge.h>
#include <lv2/atom/util.h>
#include <lv2/core/lv2.h>
#include <lv2/midi/midi.h>
#include <lv2/patch/patch.h>
#include <lv2/state/state.h>
#include <lv2/time/time.h>
#include <lv2/urid/urid.h>

#include "hostcore/blockprocessor.h"
#include "hostcore/engine.h"
#include "hostcore/preset.h"
#include "paramset.h"

using namespace Norvell::HostCore;
using namespace Norvell::Lv2;

namespace {

enum Port : uint32_t { kControl = 0, kNotify = 1, kLeft = 2, kRight = 3 };

struct Uris {
    LV2_URID atomFloat, atomDouble, atomInt, atomObject, atomUrid, atomSequence, midiEvent;
    LV2_URID patchSet, patchGet, patchProperty, patchValue, timePosition, timeBpm;
    LV2_URID stateChanged, stateVersion;

    explicit Uris(LV2_URID_Map* map) {
        auto m = [map](const char* uri) { return map->map(map->handle, uri); };
        atomFloat = m(LV2_ATOM__Float);
        atomDouble = m(LV2_ATOM__Double);
        atomInt = m(LV2_ATOM__Int);
        atomObject = m(LV2_ATOM__Object);
        atomUrid = m(LV2_ATOM__URID);
        atomSequence = m(LV2_ATOM__Sequence);
        midiEvent = m(LV2_MIDI__MidiEvent);
        patchSet = m(LV2_PATCH__Set);
        patchGet = m(LV2_PATCH__Get);
        patchProperty = m(LV2_PATCH__property);
        patchValue = m(LV2_PATCH__value);
        timePosition = m(LV2_TIME__Position);
        timeBpm = m(LV2_TIME__beatsPerMinute);
        stateChanged = m(LV2_STATE__StateChanged);
        stateVersion = m(kStateVersionUri);
    }
};

// Bytes one patch:Set event takes in the notify sequence, with room to spare.
constexpr uint32_t kSetEventBytes = 96;

class Plugin final : public ChangeObserver {
public:
    Plugin(double rate, const std::string& bundle, LV2_URID_Map* map)
        : map_(map), uris_(map), engine_(EnginePathIn(bundle)) {
        engine_.Start(float(rate));
        params_ = engine_.ReadParams();
        if (params_.Size() == 0) throw EngineError("the engine reports no parameters");
        controls_ = ControlIds::From(params_);
        const size_t count = params_.Size();
        roles_.resize(count);
        urids_.resize(count);
        for (uint32_t id = 0; id < count; ++id) {
            roles_[id] = RoleOf(params_.At(id).name);
            otherVoice_.push_back(OtherVoiceSound(params_.At(id).name));
            urids_[id] = map->map(map->handle, ParamUri(params_.At(id).name).c_str());
            byUrid_.push_back({urids_[id], id});
        }
        std::sort(byUrid_.begin(), byUrid_.end());
        presetMode_ = params_.Find("presetmode").value_or(0);

        ApplyPerformanceDefaults(engine_, params_);
        for (const auto& v : ResolvePreset(ReadPreset(bundle + "/init.json"), params_))
            engine_.SetParam(v.id, v.value);
        engine_.UpdateVoiceSetup();
        init_.resize(count);
        mirror_ = std::make_unique<std::atomic<float>[]>(count);
        for (uint32_t id = 0; id < count; ++id) {
            engine_.GetParam(id, init_[id]);
            mirror_[id].store(init_[id], std::memory_order_relaxed);
        }
        dirty_.assign(count, 0);
        dirtyList_.reserve(count);
        processor_ = std::make_unique<BlockProcessor>(engine_, engine_.BlockSize(), float(rate));
        engine_.SetObserver(this);
        lv2_atom_forge_init(&forge_, map);
    }

    void Connect(uint32_t port, void* data) {
        switch (port) {
        case kControl: control_ = static_cast<const LV2_Atom_Sequence*>(data); break;
        case kNotify: notify_ = static_cast<LV2_Atom_Sequence*>(data); break;
        case kLeft: left_ = static_cast<float*>(data); break;
        case kRight: right_ = static_cast<float*>(data); break;
        default: break;
        }
    }

    void Run(uint32_t frames) {
        if (control_) ReadInput(frames);
        processor_->Process(left_, right_, frames);
        WriteNotify();
    }

    LV2_State_Status Save(LV2_State_Store_Function store, LV2_State_Handle handle) const {
        const int32_t version = kStateVersion;
        store(handle, uris_.stateVersion, &version, sizeof version, uris_.atomInt,
              LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE);
        const bool ownVoices = mirror_[presetMode_].load(std::memory_order_relaxed) > 0.0f;
        for (uint32_t id = 0; id < roles_.size(); ++id) {
            if (!Saved(id, ownVoices)) continue;
            // A value the engine set itself may lie between grid points.
            const float value = OnStateGrid(mirror_[id].load(std::memory_order_relaxed));
            store(handle, urids_[id], &value, sizeof value, uris_.atomFloat,
                  LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE);
        }
        return LV2_STATE_SUCCESS;
    }

    // Not concurrent with Run: the host holds the plugin's instantiation class.
    LV2_State_Status Restore(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle) {
        for (uint32_t id = 0; id < roles_.size(); ++id)
            if (roles_[id] == Role::Writable || roles_[id] == Role::StateOnly)
                engine_.SetParam(id, init_[id]);
        for (uint32_t id = 0; id < roles_.size(); ++id) {
            if (roles_[id] != Role::Writable && roles_[id] != Role::StateOnly) continue;
            size_t size = 0;
            uint32_t type = 0, flags = 0;
            const void* data = retrieve(handle, urids_[id], &size, &type, &flags);
            float value = 0.0f;
            if (data && Number(type, data, size, value))
                engine_.SetParam(id, OnStateGrid(std::clamp(value, 0.0f, 1.0f)));
        }
        engine_.UpdateVoiceSetup();
        for (uint32_t id = 0; id < roles_.size(); ++id) {
            float value = 0.0f;
            engine_.GetParam(id, value);
            mirror_[id].store(value, std::memory_order_relaxed);
        }
        sendAll_ = 0; // tell the host every value again
        return LV2_STATE_SUCCESS;
    }

    void OnChange(uint32_t id, float value) override {
        if (id >= roles_.size() || (roles_[id] != Role::Writable && roles_[id] != Role::Readable))
            return;
        if (mirror_[id].load(std::memory_order_relaxed) == value) return;
        mirror_[id].store(value, std::memory_order_relaxed);
        if (roles_[id] == Role::Writable) stateChanged_ = true;
        if (!dirty_[id]) {
            dirty_[id] = 1;
            dirtyList_.push_back(id); // capacity reserved for every id
        }
    }

private:
    bool Saved(uint32_t id, bool ownVoices) const {
        if (roles_[id] == Role::Writable || id == presetMode_) return true;
        return ownVoices && otherVoice_[id];
    }

    bool Number(uint32_t type, const void* body, size_t size, float& value) const {
        if (type == uris_.atomFloat && size >= sizeof(float))
            value = *static_cast<const float*>(body);
        else if (type == uris_.atomDouble && size >= sizeof(double))
            value = float(*static_cast<const double*>(body));
        else if (type == uris_.atomInt && size >= sizeof(int32_t))
            value = float(*static_cast<const int32_t*>(body));
        else
            return false;
        return std::isfinite(value);
    }

    int64_t IdOf(LV2_URID urid) const {
        auto it = std::lower_bound(byUrid_.begin(), byUrid_.end(), std::make_pair(urid, 0u));
        return it != byUrid_.end() && it->first == urid ? int64_t(it->second) : -1;
    }

    void ReadInput(uint32_t frames) {
        LV2_ATOM_SEQUENCE_FOREACH(control_, ev) {
            const int64_t stamp = ev->time.frames;
            const uint32_t offset =
                frames == 0 ? 0 : uint32_t(std::clamp<int64_t>(stamp, 0, frames - 1));
            if (ev->body.type == uris_.midiEvent && ev->body.size >= 1) {
                const auto* msg = reinterpret_cast<const uint8_t*>(ev + 1);
                const uint8_t d1 = ev->body.size > 1 ? msg[1] & 0x7F : 0;
                const uint8_t d2 = ev->body.size > 2 ? msg[2] & 0x7F : 0;
                if (auto action = MapMidi(msg[0], d1, d2, controls_))
                    processor_->Queue(*action, offset);
            } else if (ev->body.type == uris_.atomObject) {
                ReadObject(reinterpret_cast<const LV2_Atom_Object*>(&ev->body), offset);
            }
        }
    }

    void ReadObject(const LV2_Atom_Object* obj, uint32_t offset) {
        if (obj->body.otype == uris_.patchSet) {
            const LV2_Atom* property = nullptr;
            const LV2_Atom* value = nullptr;
            lv2_atom_object_get(obj, uris_.patchProperty, &property, uris_.patchValue, &value, 0);
            if (!property || property->type != uris_.atomUrid || !value) return;
            const int64_t id = IdOf(reinterpret_cast<const LV2_Atom_URID*>(property)->body);
            float number = 0.0f;
            if (id < 0 || roles_[size_t(id)] != Role::Writable ||
                !Number(value->type, value + 1, value->size, number))
                return;
            number = OnStateGrid(std::clamp(number, 0.0f, 1.0f));
            HostAction action;
            action.kind = HostAction::Kind::Param;
            action.id = uint32_t(id);
            action.value = number;
            if (processor_->Queue(action, offset))
                mirror_[size_t(id)].store(number, std::memory_order_relaxed);
        } else if (obj->body.otype == uris_.patchGet) {
            sendAll_ = 0;
        } else if (obj->body.otype == uris_.timePosition) {
            const LV2_Atom* bpm = nullptr;
            lv2_atom_object_get(obj, uris_.timeBpm, &bpm, 0);
            float tempo = 0.0f;
            if (bpm && Number(bpm->type, bpm + 1, bpm->size, tempo) && tempo > 0.0f) {
                HostAction action;
                action.kind = HostAction::Kind::Tempo;
                action.value = tempo;
                processor_->Queue(action, offset);
            }
        }
    }

    bool Room() const { return forge_.offset + kSetEventBytes <= forge_.size; }

    void SendSet(uint32_t id) {
        LV2_Atom_Forge_Frame frame;
        lv2_atom_forge_frame_time(&forge_, 0);
        lv2_atom_forge_object(&forge_, &frame, 0, uris_.patchSet);
        lv2_atom_forge_key(&forge_, uris_.patchProperty);
        lv2_atom_forge_urid(&forge_, urids_[id]);
        lv2_atom_forge_key(&forge_, uris_.patchValue);
        lv2_atom_forge_float(&forge_, mirror_[id].load(std::memory_order_relaxed));
        lv2_atom_forge_pop(&forge_, &frame);
    }

    void WriteNotify() {
        if (!notify_) return;
        const uint32_t capacity = notify_->atom.size;
        lv2_atom_forge_set_buffer(&forge_, reinterpret_cast<uint8_t*>(notify_), capacity);
        LV2_Atom_Forge_Frame sequence;
        if (!lv2_atom_forge_sequence_head(&forge_, &sequence, 0)) return;

        if (stateChanged_ && Room()) {
            LV2_Atom_Forge_Frame frame;
            lv2_atom_forge_frame_time(&forge_, 0);
            lv2_atom_forge_object(&forge_, &frame, 0, uris_.stateChanged);
            lv2_atom_forge_pop(&forge_, &frame);
            stateChanged_ = false;
        }
        size_t sent = 0;
        for (; sent < dirtyList_.size() && Room(); ++sent) {
            SendSet(dirtyList_[sent]);
            dirty_[dirtyList_[sent]] = 0;
        }
        dirtyList_.erase(dirtyList_.begin(), dirtyList_.begin() + std::ptrdiff_t(sent));
        for (; sendAll_ < roles_.size() && Room(); ++sendAll_)
            if (roles_[sendAll_] == Role::Writable || roles_[sendAll_] == Role::Readable)
                SendSet(uint32_t(sendAll_));
        lv2_atom_forge_pop(&forge_, &sequence);
    }

    LV2_URID_Map* map_;
    Uris uris_;
    Engine engine_;
    ParamDirectory params_;
    ControlIds controls_;
    std::unique_ptr<BlockProcessor> processor_;
    std::vector<Role> roles_;
    std::vector<bool> otherVoice_; // another voice's sound value, saved in preset mode only
    std::vector<LV2_URID> urids_;
    std::vector<std::pair<LV2_URID, uint32_t>> byUrid_;
    std::vector<float> init_;
    std::unique_ptr<std::atomic<float>[]> mirror_; // read by Save on another thread
    std::vector<uint8_t> dirty_;
    std::vector<uint32_t> dirtyList_;
    uint32_t presetMode_ = 0;
    size_t sendAll_ = SIZE_MAX; // next id to send after patch:Get or a restore
    bool stateChanged_ = false;

    LV2_Atom_Forge forge_{};
    const LV2_Atom_Sequence* control_ = nullptr;
    LV2_Atom_Sequence* notify_ = nullptr;
    float* left_ = nullptr;
    float* right_ = nullptr;
};

LV2_Handle Instantiate(const LV2_Descriptor*, double rate, const char* bundle,
                       const LV2_Feature* const* features) {
    LV2_URID_Map* map = nullptr;
    for (int i = 0; features && features[i]; ++i)
        if (std::strcmp(features[i]->URI, LV2_URID__map) == 0)
            map = static_cast<LV2_URID_Map*>(features[i]->data);
    if (!map) return nullptr;
    try {
        return new Plugin(rate, bundle, map);
    } catch (const std::exception&) {
        return nullptr;
    }
}

void Connect(LV2_Handle h, uint32_t port, void* data) {
    static_cast<Plugin*>(h)->Connect(port, data);
}

void Activate(LV2_Handle) {}

void Run(LV2_Handle h, uint32_t frames) {
    static_cast<Plugin*>(h)->Run(frames);
}

void Deactivate(LV2_Handle) {}

void Cleanup(LV2_Handle h) {
    delete static_cast<Plugin*>(h);
}

LV2_State_Status Save(LV2_Handle h, LV2_State_Store_Function store, LV2_State_Handle handle,
                      uint32_t, const LV2_Feature* const*) {
    return static_cast<Plugin*>(h)->Save(store, handle);
}

LV2_State_Status Restore(LV2_Handle h, LV2_State_Retrieve_Function retrieve,
                         LV2_State_Handle handle, uint32_t, const LV2_Feature* const*) {
    return static_cast<Plugin*>(h)->Restore(retrieve, handle);
}

const void* ExtensionData(const char* uri) {
    static const LV2_State_Interface state = {Save, Restore};
    return std::strcmp(uri, LV2_STATE__interface) == 0 ? &state : nullptr;
}

const LV2_Descriptor kDescriptor = {kPluginUri, Instantiate, Connect, Activate,
                                    Run,        Deactivate,  Cleanup, ExtensionData};

} // namespace

extern "C" LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(uint32_t index) {
    return index == 0 ? &kDescriptor : nullptr;
}
