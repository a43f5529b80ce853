// Zone filters and the voice assignment of the six play modes on a hand-built voice state.
#include "processor/modules/playmodes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

using namespace Norvell::Vantor;

namespace {

uint32_t On(uint32_t key, uint32_t velocity = 100, uint32_t channel = 0) {
    return 0x90u | channel | key << 8 | velocity << 16;
}
uint32_t Off(uint32_t key, uint32_t velocity = 64, uint32_t channel = 0) {
    return On(key, velocity, channel) - 0x10u;
}

// Zone z takes keys low..high on `channel` (0 any, c status channel c - 1) in play mode `mode`.
void SetZone(VoiceState& s, int z, float low, float high, float channel = 0, float mode = 0.4f) {
    s.zones[z].range.values[0] = low / 127.0f;
    s.zones[z].range.values[1] = high / 127.0f;
    s.zones[z].range.values[2] = channel / 16.0f;
    SetPlayMode(s.zones[z], s, mode);
}

std::vector<int> reached;

TEST(Zones, NoteOnsAreFilteredByRangeAndChannelNoteOffsAreNot) {
    VoiceState s; // voice 0 in zone 0, 1 in zone 1, 2 (disabled: still populating) in zone 4
    s.voiceZone[1] = 1;
    s.voiceZone[2] = 4;
    RemoveVoice(s.enabledVoices, 2);
    SetZone(s, 0, 60.5f, 72);    // keys 61..72: rounded half away from zero
    SetZone(s, 1, 0, 127, 0.5f); // channel 1, not 0 (any)
    SetZone(s, 4, NAN, 3 * 127); // clamped to 0..255
    for (ZoneRecord& zone : s.zones)
        zone.routine = [](VoiceState&, int z, uint32_t) { reached.push_back(z); };
    const auto zonesFor = [&](uint32_t message) {
        reached.clear();
        DispatchNoteToZones(s, message);
        return reached;
    };
    using Z = std::vector<int>;
    EXPECT_EQ(zonesFor(On(60)), (Z{1, 4}));
    EXPECT_EQ(zonesFor(On(72, 100, 1)), (Z{0, 4}));
    EXPECT_EQ(zonesFor(Off(90, 64, 5)), (Z{0, 1, 4}));
    EXPECT_EQ(zonesFor(On(90, 0)), (Z{0, 1, 4})); // velocity 0
    EXPECT_EQ(zonesFor(0xA0u | 60u << 8 | 50u << 16), Z{});
}

TEST(Zones, NotesReachUserAndChannelZones) {
    VoiceState s; // 0: zone 0; 1, 2 (disabled): channel zone 8; 3-11: unison on key 67 only
    s.voiceZone[1] = s.voiceZone[2] = 8;
    for (int v = 3; v < kVoiceCount; ++v) s.voiceZone[v] = 1;
    SetZone(s, 8, 0, 127, 2, 1.0f); // as the processor builds channel zones
    SetZone(s, 0, 0, 127);
    SetZone(s, 1, 67, 67, 0, 1.0f);
    RemoveVoice(s.enabledVoices, 2);
    DispatchNoteToZones(s, On(60, 100, 1));
    EXPECT_EQ(s.gateVoices, 0b011u); // zone 0 and zone 8
    for (uint32_t note : {On(64, 100, 1), On(67)}) DispatchNoteToZones(s, note);
    EXPECT_EQ(s.gateVoices, 0xFFBu);
    DispatchNoteToZones(s, Off(64, 64, 1)); // zone 8 moves back to 60, keeping its gates
    EXPECT_EQ(s.voiceMessage[1], On(60, 64, 1));
    EXPECT_EQ(s.gateVoices, 0xFFBu);
}

// Zone 0 holding `voices` (the others are in zone 3), played by `play`.
struct Zone {
    VoiceState s;
    PlayModeRoutine play;
    Zone(PlayModeRoutine routine, std::vector<int> voices, bool steal = false) : play(routine) {
        std::fill(std::begin(s.voiceZone), std::end(s.voiceZone), 3);
        for (int v : voices) s.voiceZone[v] = 0;
        s.zones[0].enableSteal = steal ? 1 : 0;
    }
    int Press(uint32_t key) { // the voice the note-on started, -1 when dropped
        s.triggerVoices = 0;
        play(s, 0, On(key));
        return s.triggerVoices == 0 ? -1 : __builtin_ctz(s.triggerVoices);
    }
    void Release(uint32_t key) { play(s, 0, Off(key)); }
};

TEST(PlayModes, LowestFree) {
    for (bool steal : {false, true}) {
        Zone z(PlayLowestFree, {0, 1, 2, 3}, steal);
        for (int v : {0, 1, 2}) EXPECT_EQ(z.Press(60 + v), v);
        z.Release(61);
        EXPECT_EQ(z.s.voiceMessage[1], Off(61)); // released, in note-off form
        EXPECT_EQ(z.Press(65), 1);
        EXPECT_EQ(z.Press(60), 3); // voices 0 and 3 hold 60
        EXPECT_EQ(z.Press(70), steal ? 0 : -1);
        EXPECT_EQ(z.Press(71), steal ? 1 : -1);
        z.Release(66); // held by no voice
        EXPECT_EQ(z.s.gateVoices, 0b1111u);
        RemoveVoice(z.s.enabledVoices, 0); // disabled mid-note: the lowest holder still releases
        z.Release(60);
        EXPECT_EQ(z.s.gateVoices, steal ? 0b0111u : 0b1110u); // 0 was stolen from 60
        EXPECT_EQ(z.Press(72), steal ? 3 : -1);               // and takes no new note
    }
}

TEST(PlayModes, RotateArmsAndDisarms) {
    Zone steal(PlayRotate, {2, 5, 9}, true);
    for (int v : {2, 5, 9, 2, 5}) EXPECT_EQ(steal.Press(60 + v), v);
    steal.Release(62); // an armed pointer stays put
    EXPECT_EQ(steal.Press(70), 9);
    Zone z(PlayRotate, {0, 1});
    EXPECT_EQ(z.Press(60), 0);
    EXPECT_EQ(z.Press(62), 1); // only the pointer voice was free: disarms
    EXPECT_EQ(z.Press(64), -1);
    z.Release(65); // no holder: stays disarmed
    EXPECT_EQ(z.s.zones[0].rotationArmed, 0);
    z.Release(60); // arms
    EXPECT_EQ(z.Press(67), 0);
}

TEST(PlayModes, ReassignKeepsAKeyOnItsVoice) {
    Zone z(PlayReassign, {0, 1, 2, 3});
    EXPECT_EQ(z.Press(60), 0);
    z.Release(60);
    EXPECT_EQ(z.Press(60), 0); // although voice 1 is free
    EXPECT_EQ(z.Press(62), 1);
    for (bool steal : {false, true}) {
        Zone all(PlayReassign, {0, 1, 2, 3}, steal);
        for (uint32_t key : {60, 62, 64, 65}) {
            all.Press(key);
            all.Release(key);
        }
        EXPECT_EQ(all.Press(67), steal ? 0 : -1); // every voice remembers a key
    }
}

TEST(PlayModes, UnisonPriorities) {
    Zone low(PlayUnisonLow, {0, 1, 2});
    RemoveVoice(low.s.enabledVoices, 2);
    EXPECT_EQ(low.Press(60), 0);
    EXPECT_EQ(low.s.triggerVoices, 0b011u);
    EXPECT_EQ(low.Press(64), -1);
    low.play(low.s, 0, Off(60, 33, 2)); // legato move with the release velocity
    EXPECT_EQ(low.s.voiceMessage[1], On(64, 33, 2));
    EXPECT_EQ(low.s.releaseVoices | low.s.triggerVoices | low.s.voiceMessage[2], 0u);
    low.Release(64);
    EXPECT_EQ(low.s.releaseVoices, 0b011u);
    Zone high(PlayUnisonHigh, {0});
    for (uint32_t key : {60, 64, 62}) EXPECT_EQ(high.Press(key), key == 62 ? -1 : 0);
    high.Release(64);
    EXPECT_EQ(high.s.voiceMessage[0], On(62, 64));
    Zone last(PlayUnisonLast, {0});
    for (uint32_t m : {On(60), On(62), On(64), Off(64), Off(60), On(65), On(67), Off(67)})
        last.play(last.s, 0, m);
    EXPECT_EQ(MessageKey(last.s.voiceMessage[0]), 62u); // the highest slot, not the latest key
    for (PlayModeRoutine play : {PlayUnisonLow, PlayUnisonLast}) {
        Zone z(play, {0});
        for (uint32_t k = 0; k < 12; ++k) z.Press(60 + k);
        EXPECT_EQ(z.Press(50), 0); // thirteenth key: sounds, not stored
        z.Release(50);
        EXPECT_EQ(z.s.voiceMessage[0], On(50));
    }
}

} // namespace
