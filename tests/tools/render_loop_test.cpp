// MIDI-to-host mapping, block scheduling and the release tail, against a fake host.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "render/renderloop.h"
#include "render/timeline.h"

using namespace Norvell::Render;

namespace {

// Records every call with the index of the block it belongs to.
class FakeHost : public Host {
public:
    std::vector<std::string> calls;
    std::vector<float> tempos; // tempo of each Render
    // Sample value of an absolute frame; silence by default.
    std::function<float(int64_t)> signal = [](int64_t) { return 0.0f; };

    void SetParam(uint32_t id, float value) override {
        calls.push_back(Tag() + "param " + std::to_string(id) + "=" + std::to_string(value));
    }
    void UpdateVoiceSetup() override { calls.push_back(Tag() + "update"); }
    void ProcessMidi(uint32_t message) override {
        calls.push_back(Tag() + "midi " + std::to_string(message));
    }
    void Render(float* left, float* right, uint32_t frames, float, float tempo) override {
        for (uint32_t i = 0; i < frames; ++i) left[i] = right[i] = signal(frame_ + i);
        frame_ += frames;
        tempos.push_back(tempo);
        calls.push_back(Tag() + "render");
        ++block_;
    }
    void CollectChanges() override {}

    std::vector<std::string> CallsOfBlock(int block) const {
        std::vector<std::string> out;
        const std::string prefix = std::to_string(block) + ": ";
        for (const auto& c : calls)
            if (c.rfind(prefix, 0) == 0) out.push_back(c.substr(prefix.size()));
        return out;
    }

private:
    int block_ = 0;
    int64_t frame_ = 0;
    std::string Tag() const { return std::to_string(block_) + ": "; }
};

struct MemorySink : AudioSink {
    std::vector<float> left, right;
    void Write(const float* l, const float* r, size_t frames) override {
        left.insert(left.end(), l, l + frames);
        right.insert(right.end(), r, r + frames);
    }
};

HostAction Midi(int64_t frame, uint32_t message) {
    HostAction a;
    a.frame = frame;
    a.kind = HostAction::Kind::Midi;
    a.message = message;
    return a;
}

HostAction Param(int64_t frame, uint32_t id, float value,
                 HostAction::Kind kind = HostAction::Kind::Param) {
    HostAction a;
    a.frame = frame;
    a.kind = kind;
    a.id = id;
    a.value = value;
    return a;
}

RenderSettings Settings(double tail) {
    RenderSettings s;
    s.sampleRate = 1000; // one block = 32 ms, easy figures
    s.tailSeconds = tail;
    return s;
}

Norvell::Render::SmfFile OneTrack(std::vector<SmfEvent> events) {
    SmfFile file;
    file.division = 480;
    file.tracks.push_back(std::move(events));
    return file;
}

SmfEvent Channel(uint64_t tick, uint8_t status, uint8_t d1, uint8_t d2 = 0) {
    SmfEvent e;
    e.tick = tick;
    e.status = status;
    e.data1 = d1;
    e.data2 = d2;
    return e;
}

} // namespace

TEST(RenderTimeline, MidiMessagesAndControllersBecomeHostActions) {
    ControlIds ids;
    ids.modwheel = 1;
    ids.expression = 2;
    ids.sustain = 3;
    ids.pitchbend = 4;
    ids.aftertouch = 5;
    ids.allNotesOff = 6;
    const auto file =
        OneTrack({Channel(0, 0x91, 60, 100), Channel(0, 0xA1, 60, 33), Channel(0, 0xB0, 1, 127),
                  Channel(0, 0xB0, 11, 0), Channel(0, 0xB0, 64, 64), Channel(0, 0xE0, 0x00, 0x40),
                  Channel(0, 0xE0, 0x7F, 0x7F), Channel(0, 0xE0, 0, 0), Channel(0, 0xD0, 127),
                  Channel(0, 0xB0, 123, 0), Channel(0, 0xB0, 7, 100), Channel(0, 0xC0, 5),
                  Channel(0, 0x81, 60, 64)});
    const auto actions = BuildTimeline(file, 44100, ids).actions;
    ASSERT_EQ(actions.size(), 11u);
    EXPECT_EQ(actions[0].kind, HostAction::Kind::Midi);
    EXPECT_EQ(actions[0].message, 0x91u | 60u << 8 | 100u << 16);
    EXPECT_EQ(actions[1].message, 0xA1u | 60u << 8 | 33u << 16);
    const struct {
        uint32_t id;
        float value;
    } params[] = {{1, 1.0f}, {2, 0.0f}, {3, 64 / 127.0f}, {4, 0.5f}, {4, 16383 / 16384.0f},
                  {4, 0.0f}, {5, 1.0f}};
    for (size_t i = 0; i < std::size(params); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(actions[2 + i].kind, HostAction::Kind::Param);
        EXPECT_EQ(actions[2 + i].id, params[i].id);
        EXPECT_FLOAT_EQ(actions[2 + i].value, params[i].value);
    }
    EXPECT_EQ(actions[9].kind, HostAction::Kind::Immediate); // all notes off keeps its place
    EXPECT_EQ(actions[9].id, 6u);
    EXPECT_EQ(actions[10].message, 0x81u | 60u << 8 | 64u << 16);

    // Controllers the engine does not have are dropped, notes still pass.
    EXPECT_EQ(BuildTimeline(file, 44100, {}).actions.size(), 3u);
}

TEST(RenderLoop, ActionsFallIntoTheirBlockInHostOrder) {
    Timeline t;
    t.actions = {Midi(0, 0x90),  Param(31, 7, 0.25f),
                 Midi(31, 0x91), Param(31, 9, 1.0f, HostAction::Kind::Immediate),
                 Midi(32, 0x92), Param(40, 8, 0.5f)};
    t.endFrame = 64;
    FakeHost host;
    MemorySink sink;
    RenderTimeline(host, t, Settings(0), sink);

    // Parameters before UpdateVoiceSetup (which clears trigger bits), then the
    // notes and immediate actions in their order, then Render.
    EXPECT_EQ(host.CallsOfBlock(0),
              (std::vector<std::string>{"param 7=0.250000", "update", "midi 144", "midi 145",
                                        "param 9=1.000000", "render"}));
    EXPECT_EQ(host.CallsOfBlock(1),
              (std::vector<std::string>{"param 8=0.500000", "update", "midi 146", "render"}));
    EXPECT_EQ(host.CallsOfBlock(2), std::vector<std::string>{});
    EXPECT_EQ(sink.left.size(), 64u);
}

TEST(RenderLoop, TempoChangesReachTheBlockTheyFallIn) {
    Timeline t;
    t.startBpm = 96.0f;
    HostAction tempo;
    tempo.frame = 70;
    tempo.kind = HostAction::Kind::Tempo;
    tempo.value = 140.0f;
    t.actions = {tempo};
    t.endFrame = 128;
    FakeHost host;
    MemorySink sink;
    RenderTimeline(host, t, Settings(0), sink);
    EXPECT_EQ(host.tempos, (std::vector<float>{96.0f, 96.0f, 140.0f, 140.0f}));
}

TEST(RenderLoop, WithoutTailTheFileEndsAtTheLastEvent) {
    Timeline t;
    t.endFrame = 1001; // not a whole number of blocks
    FakeHost host;
    host.signal = [](int64_t) { return 0.5f; };
    MemorySink sink;
    const RenderStats stats = RenderTimeline(host, t, Settings(0), sink);
    EXPECT_EQ(stats.frames, 1001);
    EXPECT_EQ(sink.left.size(), 1001u);
    EXPECT_FALSE(stats.tailCapped);
    EXPECT_FLOAT_EQ(stats.peak, 0.5f);
}

TEST(RenderLoop, SilentOutputEndsTheTailAtTheLastEvent) {
    Timeline t;
    t.endFrame = 2000;
    FakeHost host;
    MemorySink sink;
    const RenderStats stats = RenderTimeline(host, t, Settings(10), sink);
    EXPECT_EQ(stats.frames, 2000);
    EXPECT_EQ(stats.peak, 0.0f);
}

TEST(RenderLoop, TailEndsAPadAfterTheSoundStops) {
    const RenderSettings s = Settings(10);
    const double threshold = std::pow(10.0, s.silenceDb / 20.0);
    Timeline t;
    t.endFrame = 500;
    FakeHost host;
    // A release that stays above the threshold until frame 1500, then ambient noise
    // well below it (one tenth of the threshold).
    host.signal = [&](int64_t f) { return float(f < 1500 ? 0.1 : 0.1 * threshold); };
    MemorySink sink;
    const RenderStats stats = RenderTimeline(host, t, s, sink);
    const int64_t silenceStart = 1504; // first whole silent block
    EXPECT_EQ(stats.frames, silenceStart + int64_t(s.silencePad * s.sampleRate));
    EXPECT_FALSE(stats.tailCapped);
    EXPECT_FLOAT_EQ(sink.left[1499], 0.1f);
}

TEST(RenderLoop, ShortGapsInTheTailAreKept) {
    Timeline t;
    t.endFrame = 100;
    FakeHost host;
    // Echoes: sound, then 0.5 s of silence (shorter than the hold), then sound again.
    host.signal = [](int64_t f) { return f < 800 || (f >= 1312 && f < 1600) ? 0.2f : 0.0f; };
    MemorySink sink;
    const RenderSettings s = Settings(10);
    const RenderStats stats = RenderTimeline(host, t, s, sink);
    EXPECT_EQ(stats.frames, 1600 + int64_t(s.silencePad * s.sampleRate));
    ASSERT_GE(sink.left.size(), 1600u);
    EXPECT_EQ(sink.left[1000], 0.0f);
    EXPECT_EQ(sink.left[1400], 0.2f); // the later echo is at its own place
}

TEST(RenderLoop, EndlessSoundIsCutAtTheTailLimit) {
    Timeline t;
    t.endFrame = 300;
    FakeHost host;
    host.signal = [](int64_t f) { return f % 2 ? 0.01f : -0.01f; };
    MemorySink sink;
    const RenderStats stats = RenderTimeline(host, t, Settings(2.5), sink);
    EXPECT_EQ(stats.frames, 300 + 2500);
    EXPECT_TRUE(stats.tailCapped);
}

TEST(RenderLoop, ProgressCanAbortTheRender) {
    Timeline t;
    t.endFrame = 10000;
    FakeHost host;
    MemorySink sink;
    int calls = 0;
    EXPECT_THROW(RenderTimeline(host, t, Settings(0), sink,
                                [&](const RenderProgress& p) {
                                    EXPECT_EQ(p.frames, 32 * ++calls);
                                    EXPECT_EQ(p.endFrame, 10000);
                                    return calls < 3;
                                }),
                 RenderAborted);
    EXPECT_EQ(calls, 3);
}
