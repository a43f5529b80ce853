// Voice assignment of the six play modes on a hand-built voice state.
#include "processor/modules/playmodes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

using namespace Norvell::Vantor;

namespace {

uint32_t On(uint32_t key, uint32_t velocity = 100, uint32_t channel = 0) {
    return 0x90u | channel | key << 8 | velocity << 16;
}
uint32_t Off(uint32_t key, uint32_t velocity = 64, uint32_t channel = 0) {
    return 0x80u | channel | key << 8 | velocity << 16;
}

// `zoneVoices` in zone 0, the other voices in zone 3; all enabled.
VoiceState MakeState(std::vector<int> zoneVoices, bool steal = false) {
    VoiceState s;
    std::fill(std::begin(s.voiceZone), std::end(s.voiceZone), 3);
    for (int v : zoneVoices) s.voiceZone[v] = 0;
    s.zones[0].enableSteal = steal ? 1 : 0;
    return s;
}

// Plays a note-on; the voice it started, -1 when dropped.
int Press(VoiceState& s, PlayModeRoutine play, uint32_t key) {
    s.triggerVoices = 0;
    play(s, 0, On(key));
    return s.triggerVoices == 0 ? -1 : __builtin_ctz(s.triggerVoices);
}

// True when `message` leaves gates, releases and voice messages alone.
bool ChangesNothing(VoiceState& s, PlayModeRoutine play, uint32_t message) {
    const VoiceState before = s;
    play(s, 0, message);
    return s.gateVoices == before.gateVoices && s.releaseVoices == before.releaseVoices &&
           std::equal(std::begin(s.voiceMessage), std::end(s.voiceMessage), before.voiceMessage);
}

} // namespace

TEST(PlayModes, CommitAndRotationStart) {
    VoiceState s = MakeState({2, 5, 9});
    CommitVoiceEvent(s, true, 4, On(60, 90, 3));
    EXPECT_EQ(s.activeVoices & s.gateVoices & s.triggerVoices, 1u << 4);
    CommitVoiceEvent(s, false, 4, On(60, 0, 3)); // stored in note-off form
    EXPECT_EQ(s.voiceMessage[4], Off(60, 0, 3));
    EXPECT_EQ(s.gateVoices, 0u);
    EXPECT_EQ(s.releaseVoices & s.activeVoices, 1u << 4);

    EXPECT_EQ(FindRotationStart(s, 0), 2);
    s.zones[0].lastVoice = 9;
    RemoveVoice(s.enabledVoices, 9);
    EXPECT_EQ(FindRotationStart(s, 0), 9); // the pointer wins even when disabled
    s.zones[0].lastVoice = 4;
    RemoveVoice(s.enabledVoices, 2);
    EXPECT_EQ(FindRotationStart(s, 0), 5);
    s.enabledVoices = 0;
    EXPECT_EQ(FindRotationStart(s, 0), -1);
}

TEST(PlayModes, LowestFree) {
    for (bool steal : {false, true}) {
        VoiceState s = MakeState({0, 1, 2, 3}, steal);
        for (int v : {0, 1, 2}) EXPECT_EQ(Press(s, PlayLowestFree, 60 + v), v);
        s.voiceNoteMemory[1] = 61;
        PlayLowestFree(s, 0, Off(61));
        EXPECT_EQ(s.voiceNoteMemory[1], kNoKey);
        EXPECT_EQ(Press(s, PlayLowestFree, 65), 1);
        EXPECT_EQ(Press(s, PlayLowestFree, 60), 3); // voices 0 and 3 hold 60
        EXPECT_EQ(Press(s, PlayLowestFree, 70), steal ? 0 : -1);
        EXPECT_EQ(Press(s, PlayLowestFree, 71), steal ? 1 : -1);
        EXPECT_EQ(s.zones[0].lastVoice, steal ? 1 : -1);
        EXPECT_TRUE(ChangesNothing(s, PlayLowestFree, Off(66)));
    }
    // Same key twice: the lowest holder releases first. A voice disabled
    // mid-note still releases but takes no new note.
    VoiceState s = MakeState({0, 1, 2});
    Press(s, PlayLowestFree, 60);
    Press(s, PlayLowestFree, 60);
    RemoveVoice(s.enabledVoices, 0);
    PlayLowestFree(s, 0, Off(60));
    EXPECT_EQ(s.gateVoices, 0b010u);
    EXPECT_EQ(Press(s, PlayLowestFree, 62), 2);
    EXPECT_EQ(Press(s, PlayLowestFree, 64), -1);
}

TEST(PlayModes, Rotate) {
    VoiceState s = MakeState({2, 5, 9}, true);
    for (int v : {2, 5, 9, 2, 5}) EXPECT_EQ(Press(s, PlayRotate, 60 + v), v);
    PlayRotate(s, 0, Off(62)); // an armed pointer stays put
    EXPECT_EQ(Press(s, PlayRotate, 70), 9);

    s = MakeState({0, 1});
    EXPECT_EQ(Press(s, PlayRotate, 60), 0);
    EXPECT_EQ(Press(s, PlayRotate, 62), 1); // only the pointer voice was free
    EXPECT_EQ(s.zones[0].rotationArmed, 0);
    EXPECT_EQ(Press(s, PlayRotate, 64), -1);
    PlayRotate(s, 0, Off(65)); // no holder: stays disarmed
    EXPECT_EQ(s.zones[0].rotationArmed, 0);
    PlayRotate(s, 0, Off(60));
    EXPECT_EQ(Press(s, PlayRotate, 67), 0);
    // Gates closed without a note-off: the disarmed pointer drops one note.
    s.gateVoices = 0;
    EXPECT_EQ(Press(s, PlayRotate, 68), -1);
    EXPECT_EQ(Press(s, PlayRotate, 69), 0);
}

TEST(PlayModes, Reassign) {
    VoiceState s = MakeState({0, 1, 2, 3});
    EXPECT_EQ(Press(s, PlayReassign, 60), 0);
    PlayReassign(s, 0, Off(60));
    EXPECT_EQ(Press(s, PlayReassign, 60), 0); // although voice 1 is free
    EXPECT_EQ(Press(s, PlayReassign, 60), 0); // retrigger while held
    EXPECT_EQ(Press(s, PlayReassign, 62), 1);
    PlayReassign(s, 0, Off(62));
    PlayReassign(s, 0, Off(62)); // already released: held by no voice
    EXPECT_EQ(s.zones[0].lastVoice, -1);

    auto playAndRelease = [&](std::vector<uint32_t> keys) {
        for (uint32_t key : keys) {
            Press(s, PlayReassign, key);
            PlayReassign(s, 0, Off(key));
        }
    };
    for (bool steal : {false, true}) {
        s = MakeState({0, 1, 2, 3}, steal);
        playAndRelease({60, 62, 64, 65});
        EXPECT_EQ(Press(s, PlayReassign, 67), steal ? 0 : -1); // pointer was on 3
        EXPECT_EQ(s.zones[0].lastVoice, steal ? 0 : -1);
    }
    s = MakeState({0, 1, 2, 3});
    playAndRelease({60, 62, 64});
    ResetVoiceState(s); // forgets the keys, keeps the pointer on voice 2
    EXPECT_EQ(Press(s, PlayReassign, 68), 2);
}

TEST(PlayModes, UnisonLowAndHigh) {
    VoiceState s = MakeState({0, 1, 2});
    RemoveVoice(s.enabledVoices, 2);
    PlayUnisonLow(s, 0, On(60));
    EXPECT_EQ(s.triggerVoices, 0b011u);
    EXPECT_EQ(Press(s, PlayUnisonLow, 64), -1);
    EXPECT_EQ(s.voiceMessage[0], On(60));
    PlayUnisonLow(s, 0, Off(60, 33, 2)); // legato move, release velocity
    EXPECT_EQ(s.voiceMessage[1], On(64, 33, 2));
    EXPECT_EQ(s.gateVoices, 0b011u);
    EXPECT_EQ(s.releaseVoices | s.triggerVoices | s.voiceMessage[2], 0u);
    PlayUnisonLow(s, 0, Off(64));
    EXPECT_EQ(s.releaseVoices, 0b011u);
    EXPECT_EQ(s.voiceMessage[0], Off(64));

    s = MakeState({0});
    EXPECT_EQ(Press(s, PlayUnisonHigh, 60), 0);
    EXPECT_EQ(Press(s, PlayUnisonHigh, 64), 0);
    EXPECT_EQ(Press(s, PlayUnisonHigh, 62), -1);
    EXPECT_EQ(Press(s, PlayUnisonHigh, 62), -1); // duplicates are stored again
    PlayUnisonHigh(s, 0, Off(64));
    PlayUnisonHigh(s, 0, Off(62));
    EXPECT_EQ(s.voiceMessage[0], On(62, 64));
}

TEST(PlayModes, UnisonLastAndFullSlots) {
    VoiceState s = MakeState({0});
    auto key = [&] { return MessageKey(s.voiceMessage[0]); };
    for (uint32_t k : {60u, 62u, 64u}) PlayUnisonLast(s, 0, On(k));
    PlayUnisonLast(s, 0, Off(64));
    EXPECT_EQ(key(), 62u);
    PlayUnisonLast(s, 0, Off(60));
    PlayUnisonLast(s, 0, On(65)); // refills slot 0
    PlayUnisonLast(s, 0, On(67));
    PlayUnisonLast(s, 0, Off(67));
    EXPECT_EQ(key(), 62u); // the highest occupied slot, not the latest key
    PlayUnisonLast(s, 0, Off(62));
    PlayUnisonLast(s, 0, Off(65));
    EXPECT_EQ(s.gateVoices, 0u);

    for (PlayModeRoutine play : {PlayUnisonLow, PlayUnisonLast}) {
        s = MakeState({0});
        for (uint32_t k = 0; k < 12; ++k) play(s, 0, On(60 + k));
        EXPECT_EQ(Press(s, play, 50), 0); // thirteenth key: sounds, not stored
        EXPECT_TRUE(ChangesNothing(s, play, Off(50)));
    }
}
