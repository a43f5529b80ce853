// vantor-mkdemo: writes the demo piece data/demo/demo.mid (or a short test clip).
//
//   vantor-mkdemo OUT.mid          the demo: 10 bars in A minor, about 26 s
//   vantor-mkdemo --clip OUT.mid   two notes, 1.5 s at 120 bpm (used by the tests)
//   vantor-mkdemo --phrases DIR    one short phrase per preset category, 4 s at 120 bpm
//                                  (DIR/phrase-basses.mid ...), played by the preset gallery
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

namespace {

constexpr int kPpq = 480; // ticks per quarter note

struct Event {
    uint32_t tick;
    std::vector<uint8_t> bytes; // channel message, or FF type len data for meta events
};

class Track {
public:
    void Meta(uint32_t tick, uint8_t type, std::vector<uint8_t> data) {
        std::vector<uint8_t> bytes{0xFF, type, uint8_t(data.size())};
        bytes.insert(bytes.end(), data.begin(), data.end());
        events_.push_back({tick, bytes});
    }
    void Text(uint32_t tick, uint8_t type, const std::string& text) {
        Meta(tick, type, std::vector<uint8_t>(text.begin(), text.end()));
    }
    void Tempo(uint32_t tick, double bpm) {
        const auto us = uint32_t(60000000.0 / bpm + 0.5);
        Meta(tick, 0x51, {uint8_t(us >> 16), uint8_t(us >> 8), uint8_t(us)});
    }
    void Note(uint32_t tick, uint32_t length, int channel, int key, int velocity) {
        events_.push_back({tick, {uint8_t(0x90 | channel), uint8_t(key), uint8_t(velocity)}});
        // Note-off as note-on with velocity 0, so running status carries through.
        events_.push_back({tick + length, {uint8_t(0x90 | channel), uint8_t(key), 0}});
    }
    void Control(uint32_t tick, int channel, int number, int value) {
        events_.push_back({tick, {uint8_t(0xB0 | channel), uint8_t(number), uint8_t(value)}});
    }
    void Bend(uint32_t tick, int channel, int value) { // 0..16383, centre 8192
        events_.push_back(
            {tick, {uint8_t(0xE0 | channel), uint8_t(value & 0x7F), uint8_t(value >> 7)}});
    }

    // Controller or bend sweep from a to b over [start, end), one value every step ticks.
    template <typename Emit>
    void Sweep(uint32_t start, uint32_t end, uint32_t step, int a, int b, Emit emit) {
        for (uint32_t t = start; t < end; t += step)
            emit(t, a + int((b - a) * double(t - start) / double(end - start) + 0.5));
        emit(end, b);
    }

    std::vector<uint8_t> Encode(uint32_t endTick) {
        Meta(endTick, 0x2F, {});
        // Stable: note-offs written before a note-on at the same tick stay first.
        std::stable_sort(events_.begin(), events_.end(),
                         [](const Event& a, const Event& b) { return a.tick < b.tick; });
        std::vector<uint8_t> out;
        uint32_t now = 0;
        uint8_t running = 0;
        for (const Event& e : events_) {
            Vlq(out, e.tick - now);
            now = e.tick;
            size_t first = 0;
            if (e.bytes[0] < 0xF0 && e.bytes[0] == running) first = 1; // running status
            running = e.bytes[0] < 0xF0 ? e.bytes[0] : running;
            out.insert(out.end(), e.bytes.begin() + long(first), e.bytes.end());
        }
        return out;
    }

private:
    std::vector<Event> events_;

    static void Vlq(std::vector<uint8_t>& out, uint32_t value) {
        uint8_t groups[5];
        int n = 0;
        do {
            groups[n++] = value & 0x7F;
            value >>= 7;
        } while (value);
        while (n--) out.push_back(uint8_t(groups[n] | (n ? 0x80 : 0)));
    }
};

void Be(std::vector<uint8_t>& out, uint32_t value, int bytes) {
    while (bytes--) out.push_back(uint8_t(value >> (8 * bytes)));
}

std::vector<uint8_t> File(uint16_t format, std::vector<std::vector<uint8_t>> tracks) {
    std::vector<uint8_t> out{'M', 'T', 'h', 'd'};
    Be(out, 6, 4);
    Be(out, format, 2);
    Be(out, uint32_t(tracks.size()), 2);
    Be(out, kPpq, 2);
    for (const auto& t : tracks) {
        out.insert(out.end(), {'M', 'T', 'r', 'k'});
        Be(out, uint32_t(t.size()), 4);
        out.insert(out.end(), t.begin(), t.end());
    }
    return out;
}

int Write(const std::string& path, const std::vector<uint8_t>& bytes) {
    FILE* out = std::fopen(path.c_str(), "wb");
    const bool written = out && std::fwrite(bytes.data(), 1, bytes.size(), out) == bytes.size();
    const bool closed = out && std::fclose(out) == 0;
    if (!written || !closed) {
        std::fprintf(stderr, "vantor-mkdemo: cannot write %s\n", path.c_str());
        return 1;
    }
    return 0;
}

constexpr uint32_t Beat(double beats) {
    return uint32_t(beats * kPpq + 0.5);
}
constexpr uint32_t Bar(int bar, double beat = 1.0) {
    return Beat((bar - 1) * 4 + beat - 1);
}

std::vector<uint8_t> Demo() {
    constexpr int melodyChannel = 0;
    constexpr int chordChannel = 1;
    const uint32_t end = Bar(11, 2); // one beat after the last bar

    Track conductor;
    conductor.Text(0, 0x03, "Vantor demo");
    conductor.Meta(0, 0x58, {4, 2, 24, 8}); // 4/4
    conductor.Tempo(0, 96);
    // Ritardando over the last two bars, while the final chord and note are held.
    conductor.Tempo(Bar(9), 90);
    conductor.Tempo(Bar(9, 3), 84);
    conductor.Tempo(Bar(10), 76);

    // Chords: one per bar, the last two held by the sustain pedal.
    struct Chord {
        int bar;
        double length; // beats
        std::vector<int> keys;
    };
    const std::vector<Chord> chords = {
        {1, 3.75, {45, 57, 60, 64}},     // Am
        {2, 3.75, {41, 53, 57, 60}},     // F
        {3, 3.75, {48, 52, 55, 60}},     // C
        {4, 1.0, {43, 50, 55, 59}},      // G, short so that the melody's pitch bend sounds alone
        {5, 3.75, {45, 57, 60, 64}},     // Am
        {6, 3.75, {41, 53, 57, 60}},     // F
        {7, 3.75, {38, 50, 53, 57}},     // Dm
        {8, 3.75, {40, 52, 56, 59}},     // E
        {9, 1.5, {45, 52, 57, 60}},      // Am
        {10, 3.0, {45, 52, 57, 60, 64}}, // Am
    };
    Track harmony;
    harmony.Text(0, 0x03, "Chords");
    for (const Chord& c : chords)
        for (int k : c.keys) harmony.Note(Bar(c.bar), Beat(c.length), chordChannel, k, 80);
    // Pedal down just after each of the last two chords, changed between them.
    harmony.Control(Bar(9, 1.125), chordChannel, 64, 127);
    harmony.Control(Bar(10) - Beat(0.0625), chordChannel, 64, 0);
    harmony.Control(Bar(10, 1.125), chordChannel, 64, 127);
    harmony.Control(Bar(11), chordChannel, 64, 0);

    // Melody: (bar, beat, length in beats, key, velocity).
    struct Note {
        int bar;
        double beat, length;
        int key, velocity;
    };
    const std::vector<Note> tune = {
        {1, 2, 0.5, 76, 96},   {1, 2.5, 0.5, 74, 90}, {1, 3, 1, 72, 100},    {1, 4, 0.5, 74, 92},
        {1, 4.5, 0.5, 76, 96}, {2, 1, 1.5, 77, 104},  {2, 2.5, 0.5, 76, 92}, {2, 3, 1, 72, 98},
        {2, 4, 1, 69, 90},     {3, 1, 0.5, 67, 92},   {3, 1.5, 0.5, 72, 96}, {3, 2, 1, 76, 100},
        {3, 3, 1.5, 79, 108},  {3, 4.5, 0.5, 77, 90}, {4, 1, 3, 74, 104},    {4, 4, 1, 71, 92},
        {5, 1, 1, 69, 96},     {5, 2, 0.5, 72, 92},   {5, 2.5, 0.5, 76, 96}, {5, 3, 2, 81, 110},
        {6, 1, 0.5, 79, 100},  {6, 1.5, 0.5, 77, 94}, {6, 2, 1, 76, 98},     {6, 3, 1, 72, 94},
        {6, 4, 1, 74, 96},     {7, 1, 1.5, 77, 104},  {7, 2.5, 0.5, 76, 94}, {7, 3, 1, 74, 98},
        {7, 4, 1, 69, 90},     {8, 1, 1.5, 68, 100},  {8, 2.5, 0.5, 71, 94}, {8, 3, 2, 76, 104},
        {9, 1, 1, 72, 100},    {9, 2, 1, 71, 96},     {9, 3, 5.75, 69, 104},
    };
    Track melody;
    melody.Text(0, 0x03, "Melody");
    melody.Bend(0, melodyChannel, 8192);
    melody.Control(0, melodyChannel, 1, 0);
    for (const Note& n : tune)
        melody.Note(Bar(n.bar, n.beat), Beat(n.length), melodyChannel, n.key, n.velocity);

    auto bend = [&](uint32_t t, int v) { melody.Bend(t, melodyChannel, v); };
    auto wheel = [&](uint32_t t, int v) { melody.Control(t, melodyChannel, 1, v); };
    // Bar 4: the held D bends up a whole tone to E and back (full bend is about 2 semitones).
    melody.Sweep(Bar(4, 2.75), Bar(4, 3.25), 30, 8192, 16254, bend);
    melody.Sweep(Bar(4, 3.5), Bar(4, 3.875), 30, 16254, 8192, bend);
    // Mod wheel vibrato: swell through bars 5 and 6, fade in bar 7, swell on the last note.
    melody.Sweep(Bar(5), Bar(6), 120, 0, 90, wheel);
    melody.Sweep(Bar(7), Bar(8), 120, 90, 0, wheel);
    melody.Sweep(Bar(9, 3), Bar(10, 3), 120, 0, 110, wheel);

    return File(1, {conductor.Encode(end), harmony.Encode(end), melody.Encode(end)});
}

std::vector<uint8_t> Clip() {
    Track t;
    t.Tempo(0, 120);
    t.Control(0, 0, 1, 0);
    t.Bend(0, 0, 8192);
    t.Note(0, Beat(2), 0, 60, 100); // one second
    t.Note(Beat(0.5), Beat(1.5), 0, 64, 90);
    t.Sweep(Beat(0.5), Beat(1.5), 60, 8192, 12288,
            [&](uint32_t tick, int v) { t.Bend(tick, 0, v); });
    t.Control(Beat(1), 0, 1, 64);
    return File(0, {t.Encode(Beat(3))}); // ends at 1.5 s
}

// A phrase: bars of 4/4 at 120 bpm, one track, channel 1, wheel and bend centred.
struct Phrase {
    Track track;
    Phrase() {
        track.Tempo(0, 120);
        track.Control(0, 0, 1, 0);
        track.Bend(0, 0, 8192);
    }
    void Notes(std::initializer_list<std::array<double, 4>> notes) { // beat, length, key, vel
        for (const auto& n : notes) track.Note(Beat(n[0]), Beat(n[1]), 0, int(n[2]), int(n[3]));
    }
    std::vector<uint8_t> Encode() { return File(0, {track.Encode(Beat(8))}); }
};

// Low line; overlapping notes (legato) and a gap between phrases.
std::vector<uint8_t> BassPhrase() {
    Phrase p;
    p.Notes({{0, 0.45, 36, 110},
             {0.5, 0.45, 36, 80},
             {1, 0.45, 48, 100},
             {1.5, 0.45, 36, 80},
             {2, 0.6, 39, 110},
             {2.5, 0.6, 41, 100},
             {3, 0.9, 43, 105},
             {4, 0.45, 31, 110},
             {4.5, 0.45, 43, 90},
             {5, 0.45, 31, 100},
             {5.5, 0.6, 34, 90},
             {6, 1.5, 36, 115}});
    return p.Encode();
}

// Melody with legato steps over a held lower note, a bend up and back, and the mod wheel on
// the last note.
std::vector<uint8_t> LeadPhrase() {
    Phrase p;
    p.Notes({{0, 0.55, 69, 100},
             {0.5, 0.55, 72, 96},
             {1, 1.05, 76, 110},
             {2, 0.5, 74, 90},
             {2.5, 0.5, 72, 92},
             {3, 1.5, 74, 104},
             {4.5, 0.5, 76, 96},
             {5, 2.5, 79, 112},
             {1, 2.9, 64, 80},
             {5, 2.5, 67, 84}});
    auto bend = [&](uint32_t t, int v) { p.track.Bend(t, 0, v); };
    auto wheel = [&](uint32_t t, int v) { p.track.Control(t, 0, 1, v); };
    p.track.Sweep(Beat(3.5), Beat(3.9), 30, 8192, 12288, bend);
    p.track.Sweep(Beat(4.1), Beat(4.4), 30, 12288, 8192, bend);
    p.track.Sweep(Beat(5.5), Beat(7.5), 60, 0, 100, wheel);
    return p.Encode();
}

// Two held chords, each a bar long, then room for the release.
std::vector<uint8_t> ChordPhrase(bool stabs) {
    Phrase p;
    if (stabs) { // short chords with accents before the held one
        for (double beat : {0.0, 0.75, 1.5})
            for (int key : {55, 60, 64, 67}) p.track.Note(Beat(beat), Beat(0.4), 0, key, 110);
        for (int key : {53, 57, 60, 65}) p.track.Note(Beat(2.5), Beat(3), 0, key, 100);
        return p.Encode();
    }
    for (int key : {45, 57, 60, 64}) p.track.Note(0, Beat(3.6), 0, key, 90);
    for (int key : {41, 57, 60, 65}) p.track.Note(Beat(4), Beat(3), 0, key, 84);
    return p.Encode();
}

// Broken chords in eighths, then a short chord.
std::vector<uint8_t> PluckPhrase() {
    Phrase p;
    const int keys[] = {57, 64, 69, 72, 76, 72, 69, 64, 53, 60, 65, 69, 72, 69, 65, 60};
    for (int i = 0; i < 12; ++i)
        p.track.Note(Beat(0.5 * i), Beat(0.3), 0, keys[i], 80 + (i % 4) * 10);
    for (int key : {48, 55, 60, 64}) p.track.Note(Beat(6), Beat(1), 0, key, 100);
    return p.Encode();
}

// One low and one high held note, the wheel rising over them.
std::vector<uint8_t> FxPhrase() {
    Phrase p;
    p.Notes({{0, 3, 48, 110}, {3.5, 3, 72, 100}});
    p.track.Sweep(0, Beat(6), 60, 0, 127, [&](uint32_t t, int v) { p.track.Control(t, 0, 1, v); });
    return p.Encode();
}

// Sixteenths over two bars, the pattern moving down a tone in the second.
std::vector<uint8_t> SequencePhrase() {
    Phrase p;
    const int pattern[] = {48, 60, 55, 63, 48, 67, 55, 60};
    for (int i = 0; i < 28; ++i)
        p.track.Note(Beat(0.25 * i), Beat(0.2), 0, pattern[i % 8] - (i >= 16 ? 2 : 0),
                     i % 4 == 0 ? 112 : 84);
    return p.Encode();
}

int WritePhrases(const std::string& folder) {
    const std::pair<const char*, std::vector<uint8_t>> phrases[] = {
        {"init", ChordPhrase(false)}, {"basses", BassPhrase()},     {"leads", LeadPhrase()},
        {"pads", ChordPhrase(false)}, {"keys", ChordPhrase(false)}, {"brass", ChordPhrase(true)},
        {"plucks", PluckPhrase()},    {"fx", FxPhrase()},           {"sequences", SequencePhrase()},
    };
    for (const auto& [name, bytes] : phrases)
        if (int status = Write(folder + "/phrase-" + name + ".mid", bytes)) return status;
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const bool clip = argc == 3 && std::strcmp(argv[1], "--clip") == 0;
    const bool phrases = argc == 3 && std::strcmp(argv[1], "--phrases") == 0;
    if (!(argc == 2 || clip || phrases) || argv[argc - 1][0] == '-') {
        std::fprintf(stderr, "usage: vantor-mkdemo [--clip] OUT.mid | --phrases DIR\n");
        return 2;
    }
    if (phrases) return WritePhrases(argv[2]);
    return Write(argv[argc - 1], clip ? Clip() : Demo());
}
