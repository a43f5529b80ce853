#pragma once
// Standard MIDI File reader (formats 0 and 1) and its tick-to-frame clock.
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace Norvell::Render {

// A malformed, truncated or unsupported MIDI file.
class MidiError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

enum class SmfEventType : uint8_t {
    Channel,    // a channel voice message: status, data1, data2
    Tempo,      // meta event 0x51: microseconds per quarter note in tempo
    EndOfTrack, // meta event 0x2F
};

struct SmfEvent {
    uint64_t tick = 0;
    uint16_t track = 0;
    SmfEventType type = SmfEventType::Channel;
    uint8_t status = 0;
    uint8_t data1 = 0;
    uint8_t data2 = 0; // 0 for the one-byte messages (program change, channel pressure)
    uint32_t tempo = 0;
};

struct SmfFile {
    uint16_t format = 0;
    uint16_t division = 0; // raw header word: ticks per quarter, or SMPTE when bit 15 is set
    std::vector<std::vector<SmfEvent>> tracks;

    // All tracks merged by tick; events of equal tick keep track order, then file order.
    std::vector<SmfEvent> Merged() const;
    // Tick of the last event of any track (end-of-track included).
    uint64_t LastTick() const;
};

// Parses a whole file image. Throws MidiError with the byte offset of the fault.
SmfFile ParseSmf(std::span<const uint8_t> bytes);

// Reads and parses a file. Throws MidiError (the message starts with the path).
SmfFile ReadSmf(const std::string& path);

// Converts ticks to sample frames through the file's tempo map, in exact integer
// arithmetic: an event falls into frame floor(seconds * rate).
class TempoMap {
public:
    explicit TempoMap(const SmfFile& file);

    int64_t FrameAt(uint64_t tick, uint32_t sampleRate) const;
    // Tempo in beats per minute in force at tick (120 for SMPTE time).
    double BpmAt(uint64_t tick) const;

private:
    __extension__ typedef unsigned __int128 Wide; // ticks * tempo * rate needs over 64 bits
    struct Segment {
        uint64_t tick;  // first tick of the segment
        uint32_t tempo; // microseconds per quarter note
        Wide elapsed;   // sum of ticks * tempo before the segment
    };
    bool smpte_ = false;
    uint64_t ticksPerQuarter_ = 480;
    uint64_t smpteNumerator_ = 1; // seconds per tick = numerator / denominator
    uint64_t smpteDenominator_ = 1;
    std::vector<Segment> segments_;

    const Segment& SegmentAt(uint64_t tick) const;
};

} // namespace Norvell::Render
