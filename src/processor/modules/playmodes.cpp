#include "processor/modules/playmodes.h"

namespace Norvell::Vantor {

namespace {

bool InZone(const VoiceState& state, int v, int zone) {
    return state.voiceZone[v] == zone;
}
bool IsEnabled(const VoiceState& state, int v) {
    return HasVoice(state.enabledVoices, v);
}
// A voice in its release counts as free.
bool IsFree(const VoiceState& state, int v) {
    return IsEnabled(state, v) && !HasVoice(state.gateVoices, v);
}
bool HoldsKey(const VoiceState& state, int v, uint32_t key) {
    return IsNoteOn(state.voiceMessage[v]) && MessageKey(state.voiceMessage[v]) == key;
}

// First voice of the rotation order from `start` (taken modulo 12) that
// `accept` takes; -1 when none does.
template <typename Accept> int32_t FirstInRotation(int32_t start, Accept accept) {
    const int32_t base = (start % kVoiceCount + kVoiceCount) % kVoiceCount;
    for (int32_t k = 0; k < kVoiceCount; ++k) {
        const int32_t v = (base + k) % kVoiceCount;
        if (accept(v)) return v;
    }
    return -1;
}

// Note-off search of the polyphonic modes: lowest voice of the zone holding
// the key, enabled or not, so a voice disabled mid-note still releases.
int32_t FindReleasedVoice(const VoiceState& state, int zone, uint32_t key) {
    for (int v = 0; v < kVoiceCount; ++v)
        if (InZone(state, v, zone) && HoldsKey(state, v, key)) return v;
    return -1;
}

enum class Priority { Low, High, Last };

// Key stored into the first empty slot; with all slots taken it is not kept.
void InsertKey(ZoneRecord& zone, uint32_t key) {
    for (uint8_t& slot : zone.noteSlots) {
        if (slot == kNoKey) {
            slot = static_cast<uint8_t>(key);
            return;
        }
    }
}

bool RemoveKey(ZoneRecord& zone, uint32_t key) {
    for (uint8_t& slot : zone.noteSlots) {
        if (slot != kNoKey && slot == key) {
            slot = kNoKey;
            return true;
        }
    }
    return false;
}

// Whether `held` keeps sounding over `other` under a low or high priority.
bool Outranks(Priority priority, uint32_t held, uint32_t other) {
    return priority == Priority::Low ? held < other : held > other;
}

// The held key that sounds after a release; kNoKey when no slot is occupied.
uint32_t SoundingKey(const ZoneRecord& zone, Priority priority) {
    uint32_t best = kNoKey;
    for (int s = kNoteSlotCount - 1; s >= 0; --s) {
        const uint32_t key = zone.noteSlots[s];
        if (key == kNoKey) continue;
        if (priority == Priority::Last) return key;
        if (best == kNoKey || Outranks(priority, key, best)) best = key;
    }
    return best;
}

void PlayUnison(VoiceState& state, int zone, uint32_t message, Priority priority) {
    ZoneRecord& record = state.zones[zone];
    const uint32_t key = MessageKey(message);
    auto forAllVoices = [&](auto apply) {
        for (int v = 0; v < kVoiceCount; ++v)
            if (InZone(state, v, zone) && IsEnabled(state, v)) apply(v);
    };

    if (IsNoteOn(message)) {
        bool outranked = false;
        if (priority != Priority::Last)
            for (uint8_t held : record.noteSlots)
                outranked = outranked || (held != kNoKey && Outranks(priority, held, key));
        InsertKey(record, key);
        if (outranked) return;
        forAllVoices([&](int v) { CommitVoiceEvent(state, true, v, message); });
        return;
    }
    if (!IsNoteOff(message)) return;

    const bool found = RemoveKey(record, key);
    const uint32_t next = SoundingKey(record, priority);
    if (next == kNoKey) {
        forAllVoices([&](int v) { CommitVoiceEvent(state, false, v, message); });
        return;
    }
    if (!found) return;
    // Legato move: the voices keep their gates and take the release velocity.
    const uint32_t moved =
        0x90u | (message & 0x0Fu) | (next & 0x7Fu) << 8 | (MessageValue(message) & 0x7Fu) << 16;
    forAllVoices([&](int v) { state.voiceMessage[v] = moved; });
}

} // namespace

void CommitVoiceEvent(VoiceState& state, bool isNoteOn, int32_t voice, uint32_t message) {
    if (voice < 0 || voice >= kVoiceCount) return;
    if (isNoteOn) {
        AddVoice(state.activeVoices, voice);
        AddVoice(state.gateVoices, voice);
        AddVoice(state.triggerVoices, voice);
        state.voiceMessage[voice] = message;
        return;
    }
    RemoveVoice(state.gateVoices, voice);
    AddVoice(state.releaseVoices, voice);
    // Always stored in note-off form, with the release velocity.
    state.voiceMessage[voice] = 0x80u | (message & 0x0Fu) | (MessageKey(message) & 0x7Fu) << 8 |
                                (MessageValue(message) & 0x7Fu) << 16;
}

int32_t FindRotationStart(const VoiceState& state, int zone) {
    const int32_t pointer = state.zones[zone].lastVoice;
    if (pointer >= 0 && pointer < kVoiceCount && InZone(state, pointer, zone)) return pointer;
    for (int v = 0; v < kVoiceCount; ++v)
        if (InZone(state, v, zone) && IsEnabled(state, v)) return v;
    return -1;
}

void PlayRotate(VoiceState& state, int zone, uint32_t message) {
    ZoneRecord& record = state.zones[zone];
    auto enabledInZone = [&](int v) { return InZone(state, v, zone) && IsEnabled(state, v); };
    auto freeInZone = [&](int v) { return InZone(state, v, zone) && IsFree(state, v); };

    if (IsNoteOn(message)) {
        const int32_t current = FindRotationStart(state, zone);
        const bool armed = record.rotationArmed != 0;
        record.rotationArmed = 1;
        if (record.enableSteal != 0) {
            record.lastVoice = FirstInRotation(current + 1, enabledInZone);
        } else {
            // The current voice comes last in the search: finding only it
            // means no other voice is free for the note after this one.
            const int32_t next = FirstInRotation(current + 1, freeInZone);
            if (next >= 0 && next != current) {
                record.lastVoice = next;
            } else {
                record.rotationArmed = 0;
                record.lastVoice = FirstInRotation(current + 1, enabledInZone);
            }
        }
        CommitVoiceEvent(state, true, armed ? current : -1, message);
    } else if (IsNoteOff(message)) {
        const int32_t released = FindReleasedVoice(state, zone, MessageKey(message));
        if (released >= 0 && record.rotationArmed == 0) {
            // The freed voice takes the next note.
            record.rotationArmed = 1;
            record.lastVoice = released;
        }
        CommitVoiceEvent(state, false, released, message);
    }
}

void PlayReassign(VoiceState& state, int zone, uint32_t message) {
    ZoneRecord& record = state.zones[zone];
    const uint32_t key = MessageKey(message);

    if (IsNoteOn(message)) {
        const int32_t current = FindRotationStart(state, zone);
        int32_t chosen = FirstInRotation(current + 1, [&](int v) {
            return InZone(state, v, zone) && IsEnabled(state, v) && state.voiceNoteMemory[v] == key;
        });
        if (chosen < 0)
            chosen = FirstInRotation(current, [&](int v) {
                return InZone(state, v, zone) && IsFree(state, v) &&
                       state.voiceNoteMemory[v] == kNoKey;
            });
        if (chosen < 0 && record.enableSteal != 0)
            chosen = FirstInRotation(
                current + 1, [&](int v) { return InZone(state, v, zone) && IsEnabled(state, v); });
        record.lastVoice = chosen;
        if (chosen >= 0) state.voiceNoteMemory[chosen] = static_cast<uint8_t>(key);
        CommitVoiceEvent(state, true, chosen, message);
    } else if (IsNoteOff(message)) {
        // The note memory stays: the voice is reused for the same key.
        const int32_t released = FindReleasedVoice(state, zone, key);
        record.lastVoice = released;
        CommitVoiceEvent(state, false, released, message);
    }
}

void PlayLowestFree(VoiceState& state, int zone, uint32_t message) {
    ZoneRecord& record = state.zones[zone];

    if (IsNoteOn(message)) {
        for (int v = 0; v < kVoiceCount; ++v) {
            if (InZone(state, v, zone) && IsFree(state, v)) {
                CommitVoiceEvent(state, true, v, message);
                return;
            }
        }
        if (record.enableSteal == 0) return;
        // The steal pointer is used as is: -1 starts the rotation at voice 0.
        record.lastVoice = FirstInRotation(record.lastVoice + 1, [&](int v) {
            return InZone(state, v, zone) && IsEnabled(state, v);
        });
        CommitVoiceEvent(state, true, record.lastVoice, message);
    } else if (IsNoteOff(message)) {
        const int32_t released = FindReleasedVoice(state, zone, MessageKey(message));
        if (released >= 0) state.voiceNoteMemory[released] = kNoKey;
        CommitVoiceEvent(state, false, released, message);
    }
}

void PlayUnisonLow(VoiceState& state, int zone, uint32_t message) {
    PlayUnison(state, zone, message, Priority::Low);
}
void PlayUnisonHigh(VoiceState& state, int zone, uint32_t message) {
    PlayUnison(state, zone, message, Priority::High);
}
void PlayUnisonLast(VoiceState& state, int zone, uint32_t message) {
    PlayUnison(state, zone, message, Priority::Last);
}

} // namespace Norvell::Vantor
