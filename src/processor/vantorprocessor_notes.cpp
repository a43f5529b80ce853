// MIDI note handling, the sustain queue and the host feedback of voice
// activity and key colours.
#include "processor/modules.h"
#include "processor/signalbank.h"
#include "processor/vantorprocessor.h"

#include <algorithm>
#include <array>

namespace Norvell::Vantor {

namespace {
constexpr float kInv127 = 0.007874016f;

// value x count truncated towards zero, negative results kept: a zone value
// of -0.1 names zone -2 (no user zone), a key value of -0.1 names key -12.
// Not-a-number reads as 0; the range is bounded only to stay an integer.
int32_t TruncatedIndex(float value, float count) {
    const float p = value * count;
    if (!(p == p)) return 0;
    constexpr float kBound = 1 << 20;
    return static_cast<int32_t>(std::clamp(p, -kBound, kBound));
}
} // namespace

bool VantorProcessor::ProcessMidiMessage(const Processor::MidiEvent* event) {
    if (event == nullptr || !modules || !signals) return false;
    const uint32_t message = event->message;
    const bool noteOn = IsNoteOn(message);
    const bool noteOff = IsNoteOff(message);
    const bool pressure = MessageKind(message) == 0xA;
    if (!noteOn && !noteOff && !pressure) return false;
    // MIDI data bytes are 7-bit: anything else is not a channel message.
    if ((MessageKey(message) & 0x80u) != 0 || (MessageValue(message) & 0x80u) != 0) return false;
    const uint32_t key = MessageKey(message);
    const ParamRecord<16>& master = modules->master;

    if (pressure) {
        keyPressure[key] = static_cast<float>(MessageValue(message));
        const float highest = *std::max_element(std::begin(keyPressure), std::end(keyPressure));
        if (master.bound[kMasterAftertouch] != nullptr)
            SetParam(master.ids[kMasterAftertouch], highest * kInv127);
        return false;
    }

    if (noteOff && master[kMasterSustainHold] > 0.5f && master[kMasterPedalSustain] > 0.5f &&
        deferredNoteOffCount < kDeferredNoteOffCapacity) {
        deferredNoteOffs[deferredNoteOffCount++] = message;
        return true;
    }

    DispatchNoteToZones(voiceState, message);

    ParamRecord<2>& note = modules->notes[key];
    if (note.bound[kNoteNote] != nullptr) SetParam(note.ids[kNoteNote], noteOn ? 1.0f : 0.0f);
    note.Refresh();

    SignalBank& bank = *signals;
    for (int v = 0; v < kVoiceCount; ++v) {
        const uint32_t voiceMessage = voiceState.voiceMessage[v];
        bank.keyValue[v] = static_cast<float>(MessageKey(voiceMessage)) * kInv127;
        const float velocity = static_cast<float>(MessageValue(voiceMessage)) * kInv127;
        if (noteOn)
            bank.velocityTarget[v] = velocity;
        else
            bank.releaseVelocityTarget[v] = velocity;
    }
    keyPressure[key] = 0.0f;
    return true;
}

void VantorProcessor::FlushDeferredNoteOffs() {
    uint32_t saved[kVoiceCount];
    std::copy(std::begin(voiceState.voiceMessage), std::end(voiceState.voiceMessage), saved);
    const uint64_t count = deferredNoteOffCount;
    deferredNoteOffCount = 0;
    for (uint64_t i = 0; i < count; ++i) {
        const Processor::MidiEvent event{deferredNoteOffs[i], 0, 4};
        ProcessMidiMessage(&event);
    }
    RestoreUnisonMessages(voiceState, saved);
}

void VantorProcessor::GetChangedValues(const Processor::ValueChange** list, int32_t* count) {
    int32_t filled = 0;
    if (count != nullptr) *count = 0;
    if (list != nullptr) *list = changeList;
    if (!modules) return;
    auto report = [&](Processor::ValueChange& shadow, uint32_t id, float value) {
        shadow.id = id;
        if (value != shadow.value) {
            shadow.value = value;
            changeList[filled++] = shadow;
        }
    };
    auto read = [&](uint32_t id) {
        float value = 0.0f;
        return GetParam(id, &value) ? value : 0.0f;
    };

    bool anyKeyDown = false;
    for (const ParamRecord<2>& note : modules->notes)
        anyKeyDown = anyKeyDown || note[kNoteNote] > 0.0f;

    for (int v = 0; v < kVoiceCount; ++v) {
        const bool on = anyKeyDown && HasVoice(voiceState.gateVoices, v);
        report(voiceGateShadow[v], modules->voices[v].ids[kVoiceIsOn], on ? 1.0f : 0.0f);
    }

    struct ZoneRange {
        int32_t zone;
        int32_t low;
        int32_t high;
    };
    std::array<ZoneRange, kUserZoneCount> ranges;
    for (int z = 0; z < kUserZoneCount; ++z) {
        bool inUse = false;
        for (int v = 0; v < kVoiceCount && !inUse; ++v) {
            const ParamRecord<8>& voice = modules->voices[v];
            inUse = read(voice.ids[kVoiceIsEnable]) == 1.0f &&
                    TruncatedIndex(read(voice.ids[kVoiceZone]), 23.0f) == z;
        }
        ranges[z] = {z, -1, -1};
        if (inUse) {
            const ZoneRecord& zone = voiceState.zones[z];
            ranges[z].low = TruncatedIndex(read(zone.range.ids[0]), 127.0f);
            ranges[z].high = TruncatedIndex(read(zone.range.ids[1]), 127.0f);
        }
    }
    std::stable_sort(ranges.begin(), ranges.end(), [](const ZoneRange& a, const ZoneRange& b) {
        return a.high - a.low < b.high - b.low;
    });
    bool crossing = false;
    for (const ZoneRange& a : ranges)
        for (const ZoneRange& b : ranges)
            crossing = crossing || (a.low < b.low && b.low < a.high && a.high < b.high);

    for (int k = 0; k < 128; ++k) {
        int32_t colour = 17;
        if (crossing) {
            colour = 16;
        } else {
            for (const ZoneRange& r : ranges) {
                if (r.low <= k && k <= r.high) {
                    colour = (2 * r.zone) % 15;
                    break;
                }
            }
        }
        report(noteColorShadow[k], modules->notes[k].ids[kNoteColor], static_cast<float>(colour));
    }
    if (count != nullptr) *count = filled;
}

} // namespace Norvell::Vantor
