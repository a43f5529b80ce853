#include "processor/modules/voices.h"

#include "processor/modules/playmodes.h"

namespace Norvell::Vantor {

namespace {

// Normalised value × scale, rounded half away from zero in double precision
// and truncated; anything outside a byte is clamped (NaN gives 0).
uint8_t RoundToByte(float value, double scale) {
    const double product = static_cast<double>(value) * scale;
    const double rounded = product < 0.0 ? product - 0.5 : product + 0.5;
    if (!(rounded >= 1.0)) return 0;
    if (rounded >= 255.0) return 255;
    return static_cast<uint8_t>(rounded);
}

bool ZoneHasVoice(const VoiceState& state, int zone) {
    for (int v = 0; v < kVoiceCount; ++v)
        if (state.voiceZone[v] == zone) return true;
    return false;
}

bool AcceptsNoteOn(const ZoneRecord& zone, uint32_t message) {
    const uint32_t key = MessageKey(message);
    if (key < zone.minNote || key > zone.maxNote) return false;
    return zone.channel == 0 || (MessageStatus(message) & 0x0Fu) == zone.channel - 1u;
}

bool SlotsEmpty(const ZoneRecord& zone) {
    for (uint8_t key : zone.noteSlots)
        if (key != kNoKey) return false;
    return true;
}

} // namespace

PlayModeRoutine PlayModeRoutineFor(uint32_t mode) {
    static constexpr PlayModeRoutine routines[6] = {PlayRotate,    PlayReassign,   PlayLowestFree,
                                                    PlayUnisonLow, PlayUnisonHigh, PlayUnisonLast};
    return routines[mode < 6 ? mode : 2];
}

void ResetVoiceState(VoiceState& state) {
    state.gateVoices = 0;
    state.triggerVoices = 0;
    for (uint8_t& key : state.voiceNoteMemory) key = kNoKey;
    for (ZoneRecord& zone : state.zones)
        for (uint8_t& key : zone.noteSlots) key = kNoKey;
}

int32_t RefreshKeyRange(ZoneRecord& zone) {
    // Refresh() also reports the first call, which rangeReady covers anyway.
    if (!zone.range.Refresh() && zone.rangeReady != 0) return 0;
    zone.minNote = RoundToByte(zone.range[0], 127.0);
    zone.maxNote = RoundToByte(zone.range[1], 127.0);
    zone.channel = RoundToByte(zone.range[2], 16.0);
    zone.rangeReady = 1;
    return 0;
}

void SetPlayMode(ZoneRecord& zone, VoiceState& state, float value) {
    const uint32_t mode = static_cast<uint32_t>(StepIndex(value, 6.0f, 5));
    zone.routine = PlayModeRoutineFor(mode);
    if (mode != zone.playMode) {
        // A mode change forgets the held notes of every zone, not only this one.
        ResetVoiceState(state);
        for (uint32_t& message : state.voiceMessage) message = 0;
        zone.rotationArmed = 1;
        zone.lastVoice = -1;
    }
    zone.playMode = mode;
}

void DispatchNoteToZones(VoiceState& state, uint32_t message) {
    const bool noteOn = IsNoteOn(message);
    if (!noteOn && !IsNoteOff(message)) return;
    for (int z = 0; z < kZoneCount; ++z) {
        if (!ZoneHasVoice(state, z)) continue;
        ZoneRecord& zone = state.zones[z];
        RefreshKeyRange(zone);
        // Note-offs reach every populated zone so a range change never strands a note.
        if (noteOn && !AcceptsNoteOn(zone, message)) continue;
        if (zone.routine != nullptr) zone.routine(state, z, message);
    }
}

void RestoreUnisonMessages(VoiceState& state, const uint32_t savedMessages[kVoiceCount]) {
    if (savedMessages == nullptr) return;
    for (int z = 0; z < kZoneCount; ++z) {
        const ZoneRecord& zone = state.zones[z];
        const bool unison = zone.playMode >= 3 && zone.playMode <= 5;
        if (!unison || !SlotsEmpty(zone)) continue;
        for (int v = 0; v < kVoiceCount; ++v)
            if (state.voiceZone[v] == z && HasVoice(state.enabledVoices, v))
                state.voiceMessage[v] = savedMessages[v];
    }
}

} // namespace Norvell::Vantor
