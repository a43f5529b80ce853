// Notes through the host interface: zones, sustain, pressure, and the
// feedback of voice activity and key colours.
#include "engine_harness.h"
#include "processor/modules.h"
#include "processor/signalbank.h"

#include <gtest/gtest.h>

#include <map>

using VantorTest::EngineHarness;

namespace {

// Changed values of one GetChangedValues call, by parameter id.
std::map<uint32_t, float> Changes(EngineHarness& h) {
    const VantorValueChange* list = nullptr;
    int32_t count = -1;
    h.Processor().GetChangedValues(&list, &count);
    std::map<uint32_t, float> changes;
    for (int32_t i = 0; i < count; ++i) changes[list[i].id] = list[i].value;
    return changes;
}

void UseZone(EngineHarness& h, int zone, int voice, int low, int high) {
    const std::string v = "voice" + std::to_string(voice) + "_";
    const std::string z = "zone" + std::to_string(zone + 1) + "_";
    h.Set(v + "isenable", 1.0f);
    h.Set(v + "zone", (zone + 0.5f) / 23.0f);
    h.Set(z + "min_note", low / 127.0f);
    h.Set(z + "max_note", high / 127.0f);
}

float Colour(std::map<uint32_t, float>& changes, EngineHarness& h, int key) {
    return changes.at(h.Id("note" + std::to_string(key + 1) + "_color"));
}

} // namespace

TEST(KeyColours, NoZoneInUseReportsOutsideOnceThenNothing) {
    EngineHarness h;
    auto first = Changes(h);
    EXPECT_EQ(first.size(), 128u); // no gate values change, every key becomes 17
    for (int k = 0; k < 128; ++k) EXPECT_EQ(Colour(first, h, k), 17.0f);
    EXPECT_TRUE(Changes(h).empty());
}

TEST(KeyColours, NestedZonesColourByTheNarrowest) {
    EngineHarness h;
    UseZone(h, 0, 1, 0, 127);
    UseZone(h, 1, 2, 36, 59);
    auto changes = Changes(h);
    // Keys of zone 0 keep colour 0, which equals the shadow's start: not reported.
    EXPECT_EQ(changes.size(), 24u);
    for (int k = 36; k <= 59; ++k) EXPECT_EQ(Colour(changes, h, k), 2.0f);
}

TEST(KeyColours, CrossingZonesColourEveryKey16) {
    EngineHarness h;
    UseZone(h, 0, 1, 0, 60);
    UseZone(h, 1, 2, 40, 100);
    auto changes = Changes(h);
    for (int k = 0; k < 128; ++k) EXPECT_EQ(Colour(changes, h, k), 16.0f);
}

TEST(KeyColours, IdenticalRangesTakeTheLowerZoneAndOnlyExactEnableCounts) {
    EngineHarness h;
    UseZone(h, 3, 1, 10, 20);
    UseZone(h, 2, 2, 10, 20);
    UseZone(h, 5, 3, 30, 40);
    h.Set("voice3_isenable", 0.5f); // only exactly 1.0 puts a zone in use
    auto changes = Changes(h);
    EXPECT_EQ(Colour(changes, h, 15), 4.0f);  // zone 2
    EXPECT_EQ(Colour(changes, h, 35), 17.0f); // zone 5 not in use
}

// Zone and key values are scaled and truncated towards zero with their sign:
// a zone value of -0.1 (-2.3) names no user zone, and a lowest key of -0.1
// (-12.7) makes zone 1's range 12 keys wider, so that it crosses zone 2's.
TEST(KeyColours, NegativeRawValuesKeepTheirSign) {
    struct Case {
        const char* name;
        float voiceZone, lowestKey; // raw values of voice 1's zone and zone 1's min_note
        bool secondZone;            // zone 2 over keys 0 to 25
        float colourOfKey64;
    };
    const Case cases[] = {
        {"zone -0.1 is no zone", -0.1f, 0.0f, false, 17.0f},
        {"zone -0.01 truncates to zone 1", -0.01f, 0.0f, false, 0.0f},
        {"zone 1 from key -12 crosses zone 2", 0.5f / 23.0f, -0.1f, true, 16.0f},
    };
    for (const Case& c : cases) {
        EngineHarness h;
        UseZone(h, 0, 1, 0, 20);
        h.Set("zone1_max_note", 1.0f);
        if (c.secondZone) UseZone(h, 1, 2, 0, 25);
        if (c.secondZone) h.Set("zone1_max_note", 20.0f / 127.0f);
        h.Set("voice1_zone", c.voiceZone);
        h.Set("zone1_min_note", c.lowestKey);
        auto changes = Changes(h);
        // The first call reports every key whose colour is not 0.
        const uint32_t id = h.Id("note65_color");
        EXPECT_EQ(changes.count(id) ? changes.at(id) : 0.0f, c.colourOfKey64) << c.name;
    }
}

TEST(VoiceFeedback, IsOnFollowsGateWhileAKeyIsDown) {
    EngineHarness h;
    h.SetupPolyPatch();
    Changes(h);
    h.NoteOn(60);
    h.RenderBlocks(1);
    auto on = Changes(h);
    EXPECT_EQ(on.at(h.Id("voice1_ison")), 1.0f);
    EXPECT_EQ(on.count(h.Id("voice2_ison")), 0u);
    EXPECT_TRUE(Changes(h).empty());
    h.NoteOff(60);
    h.RenderBlocks(1);
    auto off = Changes(h);
    EXPECT_EQ(off.at(h.Id("voice1_ison")), 0.0f);
    EXPECT_FLOAT_EQ(h.Get("note61_note"), 0.0f);
}

TEST(Notes, KeyAndVelocityReachTheVoice) {
    EngineHarness h;
    h.SetupSingleVoicePatch();
    h.NoteOn(64, 127);
    h.RenderBlocks(2);
    const auto& bank = h.Processor().Signals();
    EXPECT_FLOAT_EQ(bank.voices[0].key[0], 64 * 0.007874016f);
    EXPECT_FLOAT_EQ(bank.voices[0].velocity[31], 127 * 0.007874016f);
    EXPECT_FLOAT_EQ(h.Get("note65_note"), 1.0f);
}

TEST(Notes, SustainHoldsNoteOffsAndReplaysThemInOrder) {
    EngineHarness h;
    h.SetupPolyPatch();
    h.Set("sustain-hold", 1.0f);
    h.Set("pedal-sustain", 1.0f);
    auto& voices = h.Processor().Voices();
    h.NoteOn(60);
    h.NoteOn(64);
    h.RenderBlocks(1);
    const uint32_t held = voices.gateVoices;
    ASSERT_EQ(__builtin_popcount(held), 2);
    h.NoteOff(60);
    h.NoteOff(64);
    h.RenderBlocks(1);
    EXPECT_EQ(voices.gateVoices, held);
    h.Set("pedal-sustain", 0.5f); // exactly 0.5 counts as released
    h.RenderBlocks(1);
    EXPECT_EQ(voices.gateVoices, 0u);
    EXPECT_EQ(voices.voiceMessage[0] & 0xF0u, 0x80u);
}

TEST(Notes, PolyphonicPressureBecomesAftertouch) {
    EngineHarness h;
    VantorMidiEvent a{0xA0u | 60u << 8 | 64u << 16, 0, 0};
    VantorMidiEvent b{0xA0u | 62u << 8 | 100u << 16, 0, 0};
    EXPECT_FALSE(h.Processor().ProcessMidiMessage(&a));
    EXPECT_FALSE(h.Processor().ProcessMidiMessage(&b));
    EXPECT_FLOAT_EQ(h.Get("aftertouch"), 100 * 0.007874016f);
    VantorMidiEvent off{0x80u | 62u << 8, 0, 0};
    EXPECT_TRUE(h.Processor().ProcessMidiMessage(&off));
    EXPECT_FLOAT_EQ(h.Get("aftertouch"), 100 * 0.007874016f); // stays until the next pressure
    EXPECT_FALSE(h.Processor().ProcessMidiMessage(&a));
    EXPECT_FLOAT_EQ(h.Get("aftertouch"), 64 * 0.007874016f);
}

TEST(Notes, GarbageMessagesAreIgnored) {
    EngineHarness h;
    h.SetupPolyPatch();
    h.RenderBlocks(1);
    for (uint32_t message : {0xFFFFFFFFu, 0x00000000u, 0x0000F0B0u, 0x00FF8090u, 0x7F7F7FF0u}) {
        VantorMidiEvent event{message, 0, 0};
        EXPECT_FALSE(h.Processor().ProcessMidiMessage(&event)) << std::hex << message;
    }
    EXPECT_EQ(h.Processor().Voices().gateVoices, 0u);
}

TEST(Notes, AFullSustainQueueLetsTheNextNoteOffThrough) {
    EngineHarness h;
    h.SetupPolyPatch();
    h.Set("sustain-hold", 1.0f);
    h.Set("pedal-sustain", 1.0f);
    h.NoteOn(60);
    h.RenderBlocks(1);
    auto& voices = h.Processor().Voices();
    ASSERT_TRUE(Norvell::Vantor::HasVoice(voices.gateVoices, 0));
    // 1536 held note-offs of keys no voice holds fill the queue.
    for (int i = 0; i < 1536; ++i) h.NoteOff(10 + i % 40);
    h.RenderBlocks(1);
    EXPECT_TRUE(Norvell::Vantor::HasVoice(voices.gateVoices, 0));
    h.NoteOff(60); // the queue is full: processed at once, pedal still down
    h.RenderBlocks(1);
    EXPECT_FALSE(Norvell::Vantor::HasVoice(voices.gateVoices, 0));
}

TEST(Notes, UnisonVoicesKeepTheirKeyThroughTheSustainReplay) {
    EngineHarness h;
    h.SetupPolyPatch();
    h.Set("zone1_playmode", 5.5f / 6.0f); // last-key unison
    h.Set("sustain-hold", 1.0f);
    h.Set("pedal-sustain", 1.0f);
    h.NoteOn(60, 90);
    h.NoteOff(60, 40);
    h.RenderBlocks(1);
    const uint32_t sounding = 0x90u | 60u << 8 | 90u << 16;
    auto& voices = h.Processor().Voices();
    ASSERT_EQ(voices.voiceMessage[3], sounding);
    h.Set("pedal-sustain", 0.0f);
    h.RenderBlocks(1);
    EXPECT_EQ(voices.gateVoices, 0u);            // released by the replayed note-off
    EXPECT_EQ(voices.voiceMessage[3], sounding); // but still sounding key 60
}
