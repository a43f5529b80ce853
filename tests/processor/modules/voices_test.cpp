// Key ranges, zone filters, play-mode selection and the unison restore after
// replayed note-offs, on a hand-built voice state.
#include "processor/modules/playmodes.h"
#include "processor/modules/voices.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace Norvell::Vantor;

namespace {

uint32_t On(uint32_t key, uint32_t channel = 0) {
    return 0x90u | channel | key << 8 | 100u << 16;
}
uint32_t Off(uint32_t key, uint32_t channel = 0) {
    return 0x80u | channel | key << 8 | 64u << 16;
}

void SetRange(ZoneRecord& zone, float low, float high, float channel = 0.0f) {
    zone.range.values[0] = low;
    zone.range.values[1] = high;
    zone.range.values[2] = channel;
}

// A channel zone as the processor builds it.
void SetUpChannelZone(VoiceState& s, int z) {
    SetRange(s.zones[z], 0.0f, 1.0f, static_cast<float>(z - 6) / 16.0f);
    SetPlayMode(s.zones[z], s, 1.0f);
}

std::vector<int> reached;
void Record(VoiceState&, int zone, uint32_t) {
    reached.push_back(zone);
}

} // namespace

TEST(Zones, KeyRangeRoundsHalfAwayFromZeroAndClampsToBytes) {
    ZoneRecord zone;
    SetRange(zone, 0.5f, 60.0f / 127.0f, 2.5f / 16.0f);
    RefreshKeyRange(zone);
    EXPECT_EQ(zone.minNote, 64); // 63.5
    EXPECT_EQ(zone.maxNote, 60);
    EXPECT_EQ(zone.channel, 3); // 2.5, not rounded to even
    float bound[3] = {-0.5f, 3.0f, NAN};
    for (int i = 0; i < 3; ++i) zone.range.bound[i] = &bound[i];
    RefreshKeyRange(zone);
    EXPECT_EQ(zone.minNote, 0);
    EXPECT_EQ(zone.maxNote, 255);
    EXPECT_EQ(zone.channel, 0);
    bound[1] = 72.0f / 127.0f; // bound values are followed on every change
    RefreshKeyRange(zone);
    EXPECT_EQ(zone.maxNote, 72);
}

TEST(Zones, PlayModeSelectionAndReset) {
    const std::pair<float, uint32_t> cases[] = {{1.0f, 5}, {0.999f, 5}, {0.8f, 4},
                                                {0.0f, 0}, {-1.0f, 0},  {NAN, 0}};
    for (const auto& [value, mode] : cases) {
        VoiceState s;
        SetPlayMode(s.zones[0], s, value);
        EXPECT_EQ(s.zones[0].playMode, mode) << value;
        EXPECT_EQ(s.zones[0].routine, PlayModeRoutineFor(mode)) << value;
    }
    EXPECT_EQ(PlayModeRoutineFor(5), &PlayUnisonLast);

    // Voice 0 in zone 0 (lowest free), voices 1-11 in zone 1 (unison last).
    VoiceState s;
    for (int v = 1; v < kVoiceCount; ++v) s.voiceZone[v] = 1;
    for (int z : {0, 1}) SetRange(s.zones[z], 0.0f, 1.0f);
    SetPlayMode(s.zones[0], s, 0.4f);
    SetPlayMode(s.zones[1], s, 1.0f);
    DispatchNoteToZones(s, On(60));
    s.voiceNoteMemory[0] = 60;
    s.zones[0].lastVoice = 3;
    s.zones[1].lastVoice = 5;
    SetPlayMode(s.zones[1], s, 0.9f); // still mode 5: nothing released
    EXPECT_EQ(s.gateVoices, 0xFFFu);
    SetPlayMode(s.zones[1], s, 0.0f); // releases every zone
    EXPECT_EQ(s.gateVoices | s.triggerVoices | s.voiceMessage[0] | s.voiceMessage[11], 0u);
    EXPECT_EQ(s.activeVoices, 0xFFFu);
    EXPECT_EQ(s.voiceNoteMemory[0], kNoKey);
    EXPECT_EQ(s.zones[1].noteSlots[0], kNoKey);
    EXPECT_EQ(s.zones[1].lastVoice, -1);
    EXPECT_EQ(s.zones[0].lastVoice, 3);
}

TEST(Zones, NoteOnsAreFilteredByRangeAndChannelNoteOffsAreNot) {
    VoiceState s;
    s.voiceZone[1] = 1;
    s.voiceZone[2] = 4;
    RemoveVoice(s.enabledVoices, 2); // a disabled voice still populates zone 4
    SetRange(s.zones[0], 60.0f / 127.0f, 72.0f / 127.0f);
    SetRange(s.zones[1], 0.0f, 1.0f, 1.0f / 16.0f);
    SetRange(s.zones[4], 0.0f, 1.0f);
    for (ZoneRecord& zone : s.zones) zone.routine = Record;
    auto zonesFor = [&](uint32_t message) {
        reached.clear();
        DispatchNoteToZones(s, message);
        return reached;
    };
    using Z = std::vector<int>;
    EXPECT_EQ(zonesFor(On(59)), (Z{1, 4}));
    EXPECT_EQ(zonesFor(On(72, 1)), (Z{0, 4}));
    EXPECT_EQ(zonesFor(Off(90, 5)), (Z{0, 1, 4}));
    EXPECT_EQ(zonesFor(0x90u | 90u << 8), (Z{0, 1, 4})); // velocity 0
    EXPECT_EQ(zonesFor(0xA0u | 60u << 8 | 50u << 16), Z{});
}

TEST(Zones, UserAndChannelZonesAndUnisonRestore) {
    // Voice 0: zone 0, lowest free. Voices 1, 2: zone 8 (status channel 1),
    // voice 2 disabled. Voices 3-11: zone 1, unison on key 67 only.
    VoiceState s;
    s.voiceZone[1] = s.voiceZone[2] = 8;
    for (int v = 3; v < kVoiceCount; ++v) s.voiceZone[v] = 1;
    SetUpChannelZone(s, 8);
    SetRange(s.zones[0], 0.0f, 1.0f);
    SetPlayMode(s.zones[0], s, 0.4f);
    SetRange(s.zones[1], 67.0f / 127.0f, 67.0f / 127.0f);
    SetPlayMode(s.zones[1], s, 1.0f);
    RemoveVoice(s.enabledVoices, 2);
    DispatchNoteToZones(s, On(60, 1));
    EXPECT_EQ(s.gateVoices, 0b011u); // zone 0 and zone 8
    DispatchNoteToZones(s, On(64, 1));
    DispatchNoteToZones(s, On(67, 0));
    EXPECT_EQ(s.gateVoices, 0xFFBu);

    uint32_t saved[kVoiceCount];
    std::copy(std::begin(s.voiceMessage), std::end(s.voiceMessage), saved);
    saved[2] = saved[3] = 0x1234u;
    DispatchNoteToZones(s, Off(64, 1)); // zone 8 moves back to 60
    EXPECT_EQ(s.voiceMessage[1], 0x91u | 60u << 8 | 64u << 16);
    DispatchNoteToZones(s, Off(60, 1)); // zone 8 empties, zone 1 keeps 67
    RestoreUnisonMessages(s, saved);
    EXPECT_EQ(s.voiceMessage[1], On(64, 1));
    EXPECT_EQ(s.voiceMessage[2], 0u);
    EXPECT_EQ(s.voiceMessage[3], On(67));
    EXPECT_EQ(s.voiceMessage[0], Off(60, 1)); // polyphonic zones are not restored
    EXPECT_EQ(s.gateVoices, 0xFF8u);
}
