// Standard MIDI File reading on hand-made byte images.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "render/midifile.h"
#include "render/timeline.h"

using namespace Norvell::Render;
using Bytes = std::vector<uint8_t>;

namespace {

Bytes Cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

Bytes Be(uint32_t value, int count) {
    Bytes out;
    while (count--) out.push_back(uint8_t(value >> (8 * count)));
    return out;
}

Bytes Chunk(const char* id, const Bytes& body) {
    return Cat({Bytes(id, id + 4), Be(uint32_t(body.size()), 4), body});
}

Bytes Header(uint16_t format, uint16_t tracks, uint16_t division) {
    return Chunk("MThd", Cat({Be(format, 2), Be(tracks, 2), Be(division, 2)}));
}

Bytes Smf(uint16_t format, uint16_t division, std::initializer_list<Bytes> tracks) {
    Bytes out = Header(format, uint16_t(tracks.size()), division);
    for (const auto& t : tracks) out = Cat({out, Chunk("MTrk", t)});
    return out;
}

const Bytes kEnd = {0x00, 0xFF, 0x2F, 0x00};

Bytes Tempo(uint8_t delta, uint32_t microseconds) {
    return Cat({{delta, 0xFF, 0x51, 0x03}, Be(microseconds, 3)});
}

std::string ErrorOf(const Bytes& bytes) {
    try {
        ParseSmf(bytes);
    } catch (const MidiError& e) {
        return e.what();
    }
    return "no error";
}

std::vector<SmfEvent> ChannelEvents(const SmfFile& file) {
    std::vector<SmfEvent> out;
    for (const auto& e : file.Merged())
        if (e.type == SmfEventType::Channel) out.push_back(e);
    return out;
}

} // namespace

TEST(MidiFile, RunningStatusCarriesThroughDataBytesAndMetaEvents) {
    const Bytes track = Cat({{0x00, 0x90, 60, 100},
                             {0x60, 62, 80},                     // running status
                             {0x10, 0xFF, 0x01, 0x02, 'h', 'i'}, // text meta event
                             {0x50, 60, 0},                      // still note-on status
                             {0x00, 0x80, 62, 64},
                             {0x00, 0xC0, 5},
                             {0x00, 6}, // one data byte, running
                             {0x00, 0xD0, 0x40},
                             kEnd});
    const auto events = ChannelEvents(ParseSmf(Smf(0, 96, {track})));
    ASSERT_EQ(events.size(), 7u);
    const uint32_t expected[][4] = {{0, 0x90, 60, 100},  {96, 0x90, 62, 80}, {192, 0x90, 60, 0},
                                    {192, 0x80, 62, 64}, {192, 0xC0, 5, 0},  {192, 0xC0, 6, 0},
                                    {192, 0xD0, 0x40, 0}};
    for (size_t i = 0; i < events.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(events[i].tick, expected[i][0]);
        EXPECT_EQ(events[i].status, expected[i][1]);
        EXPECT_EQ(events[i].data1, expected[i][2]);
        EXPECT_EQ(events[i].data2, expected[i][3]);
    }
}

TEST(MidiFile, SystemExclusiveCancelsRunningStatus) {
    const Bytes track =
        Cat({{0x00, 0x90, 60, 100}, {0x00, 0xF0, 0x03, 0x7E, 0x01, 0xF7}, {0x00, 62, 80}, kEnd});
    EXPECT_NE(ErrorOf(Smf(0, 96, {track})).find("without a status byte"), std::string::npos);
}

// A tempo change while a note is held: the note-off lands where the two tempo
// segments put it, seconds = sum of ticks * (microseconds per quarter) / (ppq * 1e6).
TEST(MidiFile, TempoChangeInTheMiddleOfANoteMovesTheNoteOff) {
    const uint16_t ppq = 96;
    const Bytes conductor = Cat({Tempo(0, 500000), Tempo(96, 250000), kEnd});
    const Bytes notes = Cat({{0x00, 0x90, 69, 100}, {0x81, 0x40, 0x80, 69, 0}, kEnd}); // off at 192
    const SmfFile file = ParseSmf(Smf(1, ppq, {conductor, notes}));

    const double offSeconds = 96.0 * 500000 / (ppq * 1e6) + 96.0 * 250000 / (ppq * 1e6);
    ASSERT_DOUBLE_EQ(offSeconds, 0.75);
    const TempoMap clock(file);
    EXPECT_EQ(clock.FrameAt(192, 44100), int64_t(offSeconds * 44100)); // 33075
    EXPECT_EQ(clock.FrameAt(192, 48000), int64_t(offSeconds * 48000)); // 36000
    EXPECT_DOUBLE_EQ(clock.BpmAt(95), 120.0);
    EXPECT_DOUBLE_EQ(clock.BpmAt(96), 240.0);

    // The timeline carries the same frame, and the tempo change as a Tempo action.
    const Timeline timeline = BuildTimeline(file, 44100, {});
    ASSERT_EQ(timeline.actions.size(), 3u);
    EXPECT_EQ(timeline.actions[1].kind, HostAction::Kind::Tempo);
    EXPECT_EQ(timeline.actions[1].frame, 22050);
    EXPECT_FLOAT_EQ(timeline.actions[1].value, 240.0f);
    EXPECT_EQ(timeline.actions[2].frame, 33075);
    EXPECT_EQ(timeline.actions[2].message, PackMidi(0x80, 69, 0));
    EXPECT_EQ(timeline.endFrame, 33075);
}

TEST(MidiFile, FramesRoundDownToTheFrameTheEventFallsIn) {
    const SmfFile file = ParseSmf(Smf(0, 480, {kEnd}));
    const TempoMap clock(file);              // default 120 bpm: one tick = 1/960 s
    EXPECT_EQ(clock.FrameAt(1, 44100), 45);  // 45.9375
    EXPECT_EQ(clock.FrameAt(7, 44100), 321); // 321.5625
    EXPECT_EQ(clock.FrameAt(960, 44100), 44100);
}

TEST(MidiFile, SmpteDivisionCountsTicksPerFrame) {
    // 25 frames per second, 40 ticks per frame: 1000 ticks per second.
    const TempoMap pal(ParseSmf(Smf(0, uint16_t(0xE728), {Cat({Tempo(0, 250000), kEnd})})));
    EXPECT_EQ(pal.FrameAt(1000, 44100), 44100); // tempo events do not apply
    // 29 means 30000/1001 frames per second.
    const TempoMap ntsc(ParseSmf(Smf(0, uint16_t(0xE301), {kEnd})));
    EXPECT_EQ(ntsc.FrameAt(30000, 48000), 1001 * 48000);
}

TEST(MidiFile, Format1TracksMergeByTickThenTrackOrder) {
    const Bytes conductor = Cat({Tempo(0, 600000), kEnd});
    const Bytes a = Cat({{0x00, 0x90, 60, 100}, {0x64, 0x80, 60, 0}, {0x00, 0xFF, 0x2F, 0x00}});
    const Bytes b = Cat({{0x32, 0x91, 64, 90}, {0x32, 0x81, 64, 0}, {0x64, 0xFF, 0x2F, 0x00}});
    const SmfFile file = ParseSmf(Smf(1, 96, {conductor, a, b}));
    ASSERT_EQ(file.tracks.size(), 3u);
    const auto events = ChannelEvents(file);
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[0].tick, 0u);
    EXPECT_EQ(events[1].tick, 50u);
    EXPECT_EQ(events[1].track, 2);
    EXPECT_EQ(events[2].tick, 100u);
    EXPECT_EQ(events[2].track, 1); // equal ticks: lower track first
    EXPECT_EQ(events[3].track, 2);
    EXPECT_EQ(file.LastTick(), 200u); // end of track 2
}

TEST(MidiFile, ZeroLengthAndUnknownChunksAreAccepted) {
    const Bytes file =
        Cat({Header(1, 2, 96), Chunk("XFIH", {}), Chunk("MTrk", {}),
             Chunk("Junk", {'a', 'b', 'c', 'd'}), Chunk("MTrk", Cat({{0x00, 0x90, 60, 1}, kEnd}))});
    const SmfFile smf = ParseSmf(file);
    ASSERT_EQ(smf.tracks.size(), 2u);
    EXPECT_TRUE(smf.tracks[0].empty());
    EXPECT_EQ(ChannelEvents(smf).size(), 1u);
    EXPECT_EQ(smf.LastTick(), 0u);
}

TEST(MidiFile, UnknownMetaEventsAreSkipped) {
    const Bytes track = Cat({{0x00, 0xFF, 0x7F, 0x03, 0x00, 0x00, 0x41}, // sequencer data
                             {0x00, 0xFF, 0x60, 0x00},                   // undefined type
                             {0x00, 0xFF, 0x21, 0x01, 0x00},             // port
                             {0x10, 0x90, 60, 100},
                             kEnd});
    const auto events = ChannelEvents(ParseSmf(Smf(0, 96, {track})));
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].tick, 16u);
}

TEST(MidiFile, EventsAfterEndOfTrackAreIgnored) {
    const Bytes track = Cat({{0x00, 0x90, 60, 100}, kEnd, {0x00, 0x90, 62, 100}});
    EXPECT_EQ(ChannelEvents(ParseSmf(Smf(0, 96, {track}))).size(), 1u);
}

TEST(MidiFile, TruncatedFilesAreReported) {
    const Bytes good = Smf(0, 96, {Cat({{0x00, 0x90, 60, 100}, kEnd})});
    // Chunk length beyond the end of the file.
    EXPECT_NE(ErrorOf(Bytes(good.begin(), good.end() - 3)).find("truncated"), std::string::npos);
    // An event cut inside its chunk.
    EXPECT_NE(ErrorOf(Smf(0, 96, {{0x00, 0x90, 60}})).find("truncated"), std::string::npos);
    // A meta event longer than its chunk.
    EXPECT_NE(ErrorOf(Smf(0, 96, {{0x00, 0xFF, 0x01, 0x10, 'x'}})).find("truncated"),
              std::string::npos);
    // Fewer tracks than the header declares.
    EXPECT_NE(ErrorOf(Cat({Header(1, 2, 96), Chunk("MTrk", kEnd)})).find("1 of 2 tracks"),
              std::string::npos);
    // Not even a whole header.
    EXPECT_NE(ErrorOf(Bytes(good.begin(), good.begin() + 10)).find("not a Standard MIDI File"),
              std::string::npos);
}

TEST(MidiFile, GarbageIsRejectedWithItsPosition) {
    EXPECT_NE(ErrorOf(Bytes{'R', 'I', 'F', 'F', 0, 0, 0, 4, 'R', 'M', 'I', 'D', 0, 0})
                  .find("not a Standard MIDI File"),
              std::string::npos);
    // A data byte with no status before it: first event byte is at offset 14 + 8 + 1.
    EXPECT_NE(ErrorOf(Smf(0, 96, {{0x00, 0x3C, 0x40}})).find("at byte 23"), std::string::npos);
    EXPECT_NE(ErrorOf(Smf(0, 96, {{0x00, 0xF4}})).find("unexpected status byte 0xF4"),
              std::string::npos);
    EXPECT_NE(ErrorOf(Smf(0, 96, {{0x00, 0x90, 0x90, 0x40}})).find("where a data byte"),
              std::string::npos);
    EXPECT_NE(ErrorOf(Smf(0, 96, {{0x81, 0x81, 0x81, 0x81, 0x01}})).find("longer than four"),
              std::string::npos);
    EXPECT_NE(ErrorOf(Cat({Header(1, 2, 96), Chunk("MTrk", kEnd),
                           Bytes{0xDE, 0xAD, 0xBE, 0xEF, 0, 0, 0, 0}}))
                  .find("unexpected bytes"),
              std::string::npos);
    EXPECT_NE(ErrorOf(Smf(2, 96, {kEnd})).find("format 2"), std::string::npos);
    EXPECT_NE(ErrorOf(Smf(0, 0, {kEnd})).find("division"), std::string::npos);
    EXPECT_NE(ErrorOf(Smf(0, 96, {Cat({{0x00, 0xFF, 0x51, 0x02, 0x07, 0xA1}, kEnd})}))
                  .find("tempo event of length 2"),
              std::string::npos);
    // Bytes after the last declared track are not part of the file.
    EXPECT_EQ(ErrorOf(Cat({Smf(0, 96, {kEnd}), Bytes{0x00, 0xFF, 0x13}})), "no error");
}

TEST(MidiFile, DamagedFilesFailCleanlyOrParse) {
    const Bytes good = Smf(1, 96,
                           {Cat({Tempo(0, 400000), kEnd}), Cat({{0x00, 0x90, 60, 100},
                                                                {0x30, 62, 90},
                                                                {0x00, 0xB0, 1, 64},
                                                                {0x10, 0xE0, 0, 64},
                                                                {0x00, 0xF0, 0x01, 0xF7},
                                                                {0x40, 0x80, 60, 0},
                                                                kEnd})});
    std::mt19937 random(1234);
    for (int round = 0; round < 5000; ++round) {
        Bytes damaged = good;
        const int edits = 1 + int(random() % 4);
        for (int e = 0; e < edits; ++e) damaged[random() % damaged.size()] = uint8_t(random());
        if (random() % 4 == 0) damaged.resize(random() % damaged.size());
        try {
            const SmfFile file = ParseSmf(damaged);
            const TempoMap clock(file);
            (void)clock.FrameAt(file.LastTick(), 44100);
        } catch (const MidiError&) {
        }
    }
}

TEST(MidiFile, ReadSmfNamesTheFileInErrors) {
    try {
        ReadSmf("/nonexistent/song.mid");
        FAIL();
    } catch (const MidiError& e) {
        EXPECT_NE(std::string(e.what()).find("/nonexistent/song.mid"), std::string::npos);
    }
}
