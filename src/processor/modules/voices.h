#pragma once
// Voice allocation state shared by every per-voice module: the voice bit
// sets, note bookkeeping of the play modes and the 23 keyboard zones.
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstdint>

namespace Norvell::Vantor {

inline constexpr int kZoneCount = 23;
inline constexpr int kUserZoneCount = 6;
inline constexpr int kNoteSlotCount = 12;
// Empty note memory or note slot.
inline constexpr uint8_t kNoKey = 128;

// Play-mode routine: (voice state, zone index, packed message).
using PlayModeRoutine = void (*)(VoiceState&, int zone, uint32_t message);

enum class PlayMode : uint32_t {
    Rotate = 0,
    Reassign = 1,
    LowestFree = 2,
    UnisonLow = 3,
    UnisonHigh = 4,
    UnisonLast = 5,
};
inline constexpr uint32_t kNoPlayMode = 0xFFFFFFFFu;

PlayModeRoutine PlayModeRoutineFor(uint32_t mode);

struct ZoneRecord {
    // The zone's MIDIRange parameters: min_note, max_note, channel_selector.
    ParamRecord<3> range;
    uint8_t minNote = 0;
    uint8_t maxNote = 127;
    uint8_t channel = 0; // 0 any channel; c accepts status channel c - 1
    uint8_t rangeReady = 0;
    int32_t lastVoice = -1; // rotation or steal pointer of the polyphonic modes
    uint8_t rotationArmed = 1;
    uint8_t enableSteal = 0;
    uint32_t playMode = kNoPlayMode;
    PlayModeRoutine routine = PlayModeRoutineFor(2);
    // Held keys of the unison modes, kNoKey when empty.
    uint8_t noteSlots[kNoteSlotCount] = {kNoKey, kNoKey, kNoKey, kNoKey, kNoKey, kNoKey,
                                         kNoKey, kNoKey, kNoKey, kNoKey, kNoKey, kNoKey};
};

struct VoiceState {
    uint32_t enabledVoices = 0xFFF;
    uint32_t gateVoices = 0;
    uint32_t activeVoices = 0;
    uint32_t triggerVoices = 0;
    uint32_t releaseVoices = 0;
    int32_t voiceZone[kVoiceCount] = {};
    uint8_t voiceNoteMemory[kVoiceCount] = {kNoKey, kNoKey, kNoKey, kNoKey, kNoKey, kNoKey,
                                            kNoKey, kNoKey, kNoKey, kNoKey, kNoKey, kNoKey};
    uint32_t voiceMessage[kVoiceCount] = {};
    ZoneRecord zones[kZoneCount];
};

inline bool HasVoice(uint32_t set, int v) {
    return ((set >> v) & 1u) != 0;
}
inline void AddVoice(uint32_t& set, int v) {
    set |= 1u << v;
}
inline void RemoveVoice(uint32_t& set, int v) {
    set &= ~(1u << v);
}

// Packed message fields.
inline uint32_t MessageStatus(uint32_t m) {
    return m & 0xFFu;
}
inline uint32_t MessageKind(uint32_t m) {
    return (m >> 4) & 0x0Fu;
}
inline uint32_t MessageKey(uint32_t m) {
    return (m >> 8) & 0xFFu;
}
inline uint32_t MessageValue(uint32_t m) {
    return (m >> 16) & 0xFFu;
}
inline bool IsNoteOn(uint32_t m) {
    return MessageKind(m) == 0x9 && MessageValue(m) != 0;
}
inline bool IsNoteOff(uint32_t m) {
    return MessageKind(m) == 0x8 || (MessageKind(m) == 0x9 && MessageValue(m) == 0);
}

// Empties all held-note state (gates, triggers, note memories, note slots).
void ResetVoiceState(VoiceState& state);
// Recomputes minNote, maxNote and channel from the range values; always 0.
int32_t RefreshKeyRange(ZoneRecord& zone);
// Selects a zone's play mode from its normalised `playmode` value.
void SetPlayMode(ZoneRecord& zone, VoiceState& state, float value);
// Hands a note-on or note-off to every zone that accepts it, in zone order.
void DispatchNoteToZones(VoiceState& state, uint32_t message);
// After replaying held note-offs: voices of an emptied unison zone get back
// the message they were sounding (saved before the replay).
void RestoreUnisonMessages(VoiceState& state, const uint32_t savedMessages[kVoiceCount]);

} // namespace Norvell::Vantor
