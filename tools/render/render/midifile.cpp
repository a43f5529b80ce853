#include "render/midifile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

namespace Norvell::Render {

namespace {

std::string Hex(unsigned value) {
    char text[8];
    std::snprintf(text, sizeof text, "0x%02X", value);
    return text;
}

uint32_t Be32(std::span<const uint8_t> b, size_t at) {
    return uint32_t(b[at]) << 24 | uint32_t(b[at + 1]) << 16 | uint32_t(b[at + 2]) << 8 |
           uint32_t(b[at + 3]);
}

uint16_t Be16(std::span<const uint8_t> b, size_t at) {
    return uint16_t(b[at] << 8 | b[at + 1]);
}

// Sequential reader over one track chunk; every read is bounded by the chunk end.
class TrackReader {
public:
    TrackReader(std::span<const uint8_t> bytes, size_t begin, size_t end, unsigned track)
        : bytes_(bytes), pos_(begin), end_(end), track_(track) {}

    bool AtEnd() const { return pos_ >= end_; }
    size_t Offset() const { return pos_; }

    uint8_t Byte() {
        if (pos_ >= end_) Truncated();
        return bytes_[pos_++];
    }

    uint8_t DataByte() {
        const size_t at = pos_;
        const uint8_t value = Byte();
        if (value & 0x80) Fail("status byte " + Hex(value) + " where a data byte was expected", at);
        return value;
    }

    // Variable-length quantity: at most four bytes, seven bits each.
    uint32_t Vlq() {
        const size_t at = pos_;
        uint32_t value = 0;
        for (int i = 0; i < 4; ++i) {
            const uint8_t b = Byte();
            value = value << 7 | (b & 0x7F);
            if (!(b & 0x80)) return value;
        }
        Fail("variable-length number longer than four bytes", at);
    }

    std::span<const uint8_t> Take(uint32_t count) {
        if (count > end_ - pos_) Truncated();
        auto data = bytes_.subspan(pos_, count);
        pos_ += count;
        return data;
    }

    [[noreturn]] void Fail(const std::string& what, size_t at) const {
        throw MidiError("track " + std::to_string(track_) + ": " + what + " at byte " +
                        std::to_string(at));
    }

private:
    std::span<const uint8_t> bytes_;
    size_t pos_;
    size_t end_;
    unsigned track_;

    [[noreturn]] void Truncated() const {
        throw MidiError("track " + std::to_string(track_) +
                        " is truncated: an event runs past the end of its chunk (byte " +
                        std::to_string(end_) + ")");
    }
};

std::vector<SmfEvent> ParseTrack(TrackReader& r, uint16_t track) {
    std::vector<SmfEvent> events;
    uint64_t tick = 0;
    uint8_t running = 0;
    while (!r.AtEnd()) {
        tick += r.Vlq();
        const size_t at = r.Offset();
        const uint8_t b = r.Byte();
        SmfEvent ev;
        ev.tick = tick;
        ev.track = track;
        if (b == 0xFF) {
            // Meta events leave running status alone (lenient, as most readers are).
            const uint8_t type = r.Byte();
            const auto data = r.Take(r.Vlq());
            if (type == 0x51) {
                if (data.size() != 3)
                    r.Fail("tempo event of length " + std::to_string(data.size()), at);
                ev.type = SmfEventType::Tempo;
                ev.tempo = uint32_t(data[0]) << 16 | uint32_t(data[1]) << 8 | data[2];
                if (ev.tempo == 0) r.Fail("tempo of 0 microseconds per quarter note", at);
                events.push_back(ev);
            } else if (type == 0x2F) {
                ev.type = SmfEventType::EndOfTrack;
                events.push_back(ev);
                break; // whatever follows end-of-track in the chunk is not part of the track
            }
        } else if (b == 0xF0 || b == 0xF7) {
            r.Take(r.Vlq()); // system exclusive: skipped
            running = 0;
        } else if (b > 0xF0) {
            r.Fail("unexpected status byte " + Hex(b), at);
        } else {
            if (b & 0x80) {
                ev.status = b;
                ev.data1 = r.DataByte();
            } else {
                if (!running) r.Fail("data byte " + Hex(b) + " without a status byte", at);
                ev.status = running;
                ev.data1 = b;
            }
            running = ev.status;
            const uint8_t kind = ev.status >> 4;
            if (kind != 0xC && kind != 0xD) ev.data2 = r.DataByte();
            events.push_back(ev);
        }
    }
    return events;
}

bool IsChunkId(std::span<const uint8_t> bytes, size_t at) {
    for (size_t i = at; i < at + 4; ++i)
        if (bytes[i] < 0x20 || bytes[i] > 0x7E) return false;
    return true;
}

} // namespace

SmfFile ParseSmf(std::span<const uint8_t> bytes) {
    if (bytes.size() < 14 || std::memcmp(bytes.data(), "MThd", 4) != 0)
        throw MidiError("not a Standard MIDI File (no MThd header)");
    const uint32_t headerLength = Be32(bytes, 4);
    if (headerLength < 6) throw MidiError("header chunk too short");
    if (headerLength > bytes.size() - 8) throw MidiError("header chunk is truncated");

    SmfFile file;
    file.format = Be16(bytes, 8);
    const uint16_t trackCount = Be16(bytes, 10);
    file.division = Be16(bytes, 12);
    if (file.format == 2)
        throw MidiError("format 2 (independent sequences) is not supported; use format 0 or 1");
    if (file.format > 2) throw MidiError("unknown file format " + std::to_string(file.format));
    if (trackCount == 0) throw MidiError("the file declares no tracks");
    if (file.division & 0x8000) {
        const int fps = -int(int8_t(file.division >> 8));
        if (fps != 24 && fps != 25 && fps != 29 && fps != 30)
            throw MidiError("unknown SMPTE frame rate " + std::to_string(fps));
        if ((file.division & 0xFF) == 0) throw MidiError("SMPTE division with 0 ticks per frame");
    } else if (file.division == 0) {
        throw MidiError("division of 0 ticks per quarter note");
    }

    size_t pos = 8 + size_t(headerLength);
    while (file.tracks.size() < trackCount) {
        if (bytes.size() - pos < 8)
            throw MidiError("file is truncated: it ends after " +
                            std::to_string(file.tracks.size()) + " of " +
                            std::to_string(trackCount) + " tracks");
        if (!IsChunkId(bytes, pos))
            throw MidiError("unexpected bytes at byte " + std::to_string(pos) +
                            " where a track chunk was expected");
        const uint32_t length = Be32(bytes, pos + 4);
        const bool isTrack = std::memcmp(bytes.data() + pos, "MTrk", 4) == 0;
        const size_t begin = pos + 8;
        if (length > bytes.size() - begin)
            throw MidiError("file is truncated: chunk at byte " + std::to_string(pos) +
                            " declares " + std::to_string(length) + " bytes, " +
                            std::to_string(bytes.size() - begin) + " remain");
        if (isTrack) {
            const auto index = uint16_t(file.tracks.size());
            TrackReader reader(bytes, begin, begin + length, index);
            file.tracks.push_back(ParseTrack(reader, index));
        }
        pos = begin + length; // chunks of unknown type are skipped
    }
    return file;
}

SmfFile ReadSmf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw MidiError(path + ": cannot open: " + std::strerror(errno));
    std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in),
                               std::istreambuf_iterator<char>()};
    if (in.bad()) throw MidiError(path + ": read error");
    try {
        return ParseSmf(bytes);
    } catch (const MidiError& e) {
        throw MidiError(path + ": " + e.what());
    }
}

std::vector<SmfEvent> SmfFile::Merged() const {
    std::vector<SmfEvent> all;
    for (const auto& track : tracks) all.insert(all.end(), track.begin(), track.end());
    std::stable_sort(all.begin(), all.end(),
                     [](const SmfEvent& a, const SmfEvent& b) { return a.tick < b.tick; });
    return all;
}

uint64_t SmfFile::LastTick() const {
    uint64_t last = 0;
    for (const auto& track : tracks)
        if (!track.empty()) last = std::max(last, track.back().tick);
    return last;
}

TempoMap::TempoMap(const SmfFile& file) {
    segments_.push_back({0, 500000, 0}); // 120 bpm until the first tempo event
    if (file.division & 0x8000) {
        smpte_ = true;
        const int fps = -int(int8_t(file.division >> 8));
        const uint64_t ticksPerFrame = file.division & 0xFF;
        // 29 stands for 30000/1001 frames per second (drop-frame rate).
        smpteNumerator_ = fps == 29 ? 1001 : 1000;
        smpteDenominator_ = uint64_t(fps == 29 ? 30 : fps) * 1000 * ticksPerFrame;
        return;
    }
    ticksPerQuarter_ = file.division;
    for (const auto& ev : file.Merged()) {
        if (ev.type != SmfEventType::Tempo) continue;
        Segment& last = segments_.back();
        if (ev.tick == last.tick) {
            last.tempo = ev.tempo;
        } else {
            const Wide elapsed = last.elapsed + Wide(ev.tick - last.tick) * last.tempo;
            segments_.push_back({ev.tick, ev.tempo, elapsed});
        }
    }
}

const TempoMap::Segment& TempoMap::SegmentAt(uint64_t tick) const {
    auto it = std::upper_bound(segments_.begin(), segments_.end(), tick,
                               [](uint64_t t, const Segment& s) { return t < s.tick; });
    return *(it - 1);
}

int64_t TempoMap::FrameAt(uint64_t tick, uint32_t sampleRate) const {
    if (smpte_) return int64_t(Wide(tick) * smpteNumerator_ * sampleRate / smpteDenominator_);
    const Segment& s = SegmentAt(tick);
    const Wide elapsed = s.elapsed + Wide(tick - s.tick) * s.tempo; // microseconds * ticks/quarter
    return int64_t(elapsed * sampleRate / (Wide(ticksPerQuarter_) * 1000000u));
}

double TempoMap::BpmAt(uint64_t tick) const {
    if (smpte_) return 120.0;
    return 60000000.0 / SegmentAt(tick).tempo;
}

} // namespace Norvell::Render
