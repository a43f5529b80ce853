// Standard MIDI File reading on hand-made byte images.
#include <gtest/gtest.h>

#include <random>

#include "render/midifile.h"
#include "render/timeline.h"

using namespace Norvell::Render;
using Bytes = std::vector<uint8_t>;

static Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
static Bytes Be(uint32_t value, int count) {
    Bytes out;
    while (count--) out.push_back(uint8_t(value >> (8 * count)));
    return out;
}
static Bytes Chunk(const char* id, const Bytes& body) {
    return Bytes(id, id + 4) + Be(uint32_t(body.size()), 4) + body;
}
// A header declaring `declared` tracks (by default as many as given), then the track chunks.
static Bytes Smf(uint16_t format, uint16_t division, const std::vector<Bytes>& tracks,
                 int declared = -1) {
    const uint32_t count = declared < 0 ? uint32_t(tracks.size()) : uint32_t(declared);
    Bytes out = Chunk("MThd", Be(format, 2) + Be(count, 2) + Be(division, 2));
    for (const auto& t : tracks) out = out + Chunk("MTrk", t);
    return out;
}
const Bytes kEnd = {0x00, 0xFF, 0x2F, 0x00};
static Bytes Tempo(uint8_t delta, uint32_t microseconds) {
    return Bytes{delta, 0xFF, 0x51, 0x03} + Be(microseconds, 3);
}

// Reads BYTES (or the file at PATH) and its clock through to the last tick.
static std::string ErrorOf(const Bytes& bytes, const char* path = nullptr) {
    try {
        const SmfFile file = path ? ReadSmf(path) : ParseSmf(bytes);
        (void)TempoMap(file).FrameAt(file.LastTick(), 44100);
    } catch (const MidiError& e) {
        return e.what();
    }
    return "no error";
}

// Channel events as "tick/track:status(hex),data1,data2 ".
static std::string ChannelEvents(const SmfFile& file) {
    std::string out;
    char text[64];
    for (const auto& e : file.Merged()) {
        if (e.type != SmfEventType::Channel) continue;
        std::snprintf(text, sizeof text, "%llu/%u:%X,%u,%u ", (unsigned long long)e.tick, e.track,
                      e.status, e.data1, e.data2);
        out += text;
    }
    return out;
}

TEST(MidiFile, RunningStatusCarriesThroughDataBytesAndMetaEvents) {
    const Bytes track =
        Bytes{0x00, 0x90, 60,   100,  0x60, 62,  80, // running status
              0x10, 0xFF, 0x01, 0x02, 'h',  'i',     // text meta event
              0x50, 60,   0,    0x00, 0x80, 62,  64, 0x00, 0xC0, 5, 0x00, 6, 0, 0xD0, 64} +
        kEnd + Bytes{0x00, 0x90, 62, 100}; // after the end of the track
    EXPECT_EQ(ChannelEvents(ParseSmf(Smf(0, 96, {track}))),
              "0/0:90,60,100 96/0:90,62,80 192/0:90,60,0 192/0:80,62,64 192/0:C0,5,0 192/0:C0,6,0 "
              "192/0:D0,64,0 ");
}

// 96 ticks at 500000 us + 96 ticks at 250000 us per quarter: the note-off is at 0.75 s.
TEST(MidiFile, TempoChangeInTheMiddleOfANoteMovesTheNoteOff) {
    const Bytes notes = Bytes{0x00, 0x90, 69, 100, 0x81, 0x40, 0x80, 69, 0} + kEnd;
    const SmfFile file = ParseSmf(Smf(1, 96, {Tempo(0, 500000) + Tempo(96, 250000) + kEnd, notes}));
    const Timeline timeline = BuildTimeline(file, 44100, {});
    EXPECT_FLOAT_EQ(timeline.startBpm, 120.0f);
    ASSERT_EQ(timeline.actions.size(), 3u);
    EXPECT_EQ(timeline.actions[1].kind, HostAction::Kind::Tempo);
    EXPECT_EQ(timeline.actions[1].frame, 22050);
    EXPECT_FLOAT_EQ(timeline.actions[1].value, 240.0f);
    EXPECT_EQ(timeline.actions[2].frame, 33075);
    EXPECT_EQ(timeline.actions[2].message, PackMidi(0x80, 69, 0));
    EXPECT_EQ(timeline.endFrame, 33075);
    EXPECT_EQ(BuildTimeline(file, 48000, {}).endFrame, 36000);
}

TEST(MidiFile, FramesRoundDownAndSmpteDivisionCountsTicksPerFrame) {
    const TempoMap clock(ParseSmf(Smf(0, 480, {kEnd}))); // 120 bpm: one tick = 1/960 s
    EXPECT_EQ(clock.FrameAt(1, 44100), 45);              // 45.9375
    EXPECT_EQ(clock.FrameAt(7, 44100), 321);             // 321.5625
    // 25 frames per second, 40 ticks per frame; tempo events do not apply.
    const TempoMap pal(ParseSmf(Smf(0, uint16_t(0xE728), {Tempo(0, 250000) + kEnd})));
    EXPECT_EQ(pal.FrameAt(1000, 44100), 44100);
    const TempoMap ntsc(ParseSmf(Smf(0, uint16_t(0xE301), {kEnd}))); // 30000/1001 fps
    EXPECT_EQ(ntsc.FrameAt(30000, 48000), 1001 * 48000);
}

TEST(MidiFile, Format1TracksMergeByTickThenTrackOrderPastUnknownChunksAndMetaEvents) {
    const Bytes a = {0x00, 0x90, 60, 100, 0x64, 0x80, 60, 0, 0x64, 0xFF, 0x2F, 0x00};
    const Bytes b = {0x00, 0xFF, 0x7F, 0x03, 0x00, 0x00, 0x41, // sequencer data
                     0x00, 0xFF, 0x60, 0x00,                   // undefined meta type
                     0x32, 0x91, 64,   90,   0x32, 0x81, 64,   0, 0x00, 0xFF, 0x2F, 0x00};
    const SmfFile file = ParseSmf(Smf(1, 96, {Tempo(0, 600000) + kEnd, a}, 4) + Chunk("XFIH", {}) +
                                  Chunk("MTrk", {}) + Chunk("Junk", {'a', 'b'}) + Chunk("MTrk", b));
    ASSERT_EQ(file.tracks.size(), 4u);
    EXPECT_TRUE(file.tracks[2].empty());
    EXPECT_EQ(ChannelEvents(file), "0/1:90,60,100 50/3:91,64,90 100/1:80,60,0 100/3:81,64,0 ");
    EXPECT_EQ(file.LastTick(), 200u); // end of track 1
}

TEST(MidiFile, TruncatedDamagedAndGarbageFilesAreReported) {
    const Bytes notes = {0x00, 0x90, 60, 100,  0x30, 62,   90,   0x00, 0xB0, 1,  64, 0x10,
                         0xE0, 0,    64, 0x00, 0xF0, 0x01, 0xF7, 0x40, 0x80, 60, 0};
    const Bytes good = Smf(1, 96, {Tempo(0, 400000) + kEnd, notes + kEnd});
    const Bytes sysex = {0x00, 0x90, 60, 100, 0x00, 0xF0, 0x03, 0x7E, 0x01, 0xF7, 0x00, 62, 80};
    const std::pair<Bytes, const char*> cases[] = {
        {Bytes(good.begin(), good.end() - 3), "truncated"}, // chunk longer than the file
        {Smf(0, 96, {{0x00, 0x90, 60}}), "truncated"},      // event cut inside its chunk
        {Smf(0, 96, {{0x00, 0xFF, 0x01, 0x10, 'x'}}), "truncated"},
        {Smf(1, 96, {kEnd}, 2), "1 of 2 tracks"},
        {Bytes(good.begin(), good.begin() + 10), "not a Standard MIDI File"},
        {{'R', 'I', 'F', 'F', 0, 0, 0, 4, 'R', 'M', 'I', 'D', 0, 0}, "not a Standard MIDI File"},
        {Smf(0, 96, {{0x00, 0x3C, 0x40}}), "at byte 23"}, // data byte without a status
        {Smf(0, 96, {sysex}), "without a status byte"},   // system exclusive ends running status
        {Smf(0, 96, {{0x00, 0xF4}}), "unexpected status byte 0xF4"},
        {Smf(0, 96, {{0x00, 0x90, 0x90, 0x40}}), "where a data byte"},
        {Smf(0, 96, {{0x81, 0x81, 0x81, 0x81, 0x01}}), "longer than four"},
        {Smf(1, 96, {kEnd}, 2) + Bytes{0xDE, 0xAD, 0xBE, 0xEF, 0, 0, 0, 0}, "unexpected bytes"},
        {Smf(2, 96, {kEnd}), "format 2"},
        {Smf(0, 0, {kEnd}), "division"},
        {Smf(0, 96, {{0x00, 0xFF, 0x51, 0x02, 0x07, 0xA1}}), "tempo event of length 2"},
        {Smf(0, 96, {kEnd}) + Bytes{0x00, 0xFF, 0x13}, "no error"}, // after the last track
    };
    for (const auto& [bytes, expected] : cases)
        EXPECT_NE(ErrorOf(bytes).find(expected), std::string::npos) << ErrorOf(bytes);
    EXPECT_NE(ErrorOf({}, "/nonexistent/song.mid").find("/nonexistent/song.mid: cannot open"),
              std::string::npos);
    std::mt19937 random(1234); // random damage: a MidiError or a file, nothing else
    for (int round = 0; round < 5000; ++round) {
        Bytes damaged = good;
        for (int e = 1 + int(random() % 4); e > 0; --e)
            damaged[random() % damaged.size()] = uint8_t(random());
        if (random() % 4 == 0) damaged.resize(random() % damaged.size());
        ErrorOf(damaged);
    }
}
