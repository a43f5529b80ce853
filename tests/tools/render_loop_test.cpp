// MIDI-to-host mapping, block scheduling and the release tail, against a fake host.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "render/renderloop.h"
#include "render/timeline.h"

using namespace Norvell::Render;
using Kind = HostAction::Kind;
using Signal = std::function<float(int64_t)>;
using Strings = std::vector<std::string>;

static std::string Text(const char* format, uint32_t number, float value = 0) {
    char text[64];
    std::snprintf(text, sizeof text, format, number, value);
    return text;
}

// Fake host and sink: logs every call, plays `signal` (value at an absolute frame).
struct Session : Host, AudioSink {
    Strings calls;
    std::vector<float> out;
    Signal signal;
    int64_t frame = 0;
    RenderStats stats;

    Session(const Timeline& t, double tail, Signal s = {}, const ProgressFn& progress = {})
        : signal(std::move(s)) { // blocks of 32 frames = 32 ms
        stats = RenderTimeline(*this, t, RenderSettings{1000, 32, tail}, *this, progress);
    }
    void SetParam(uint32_t id, float v) override { calls.push_back(Text("param %u=%.9g", id, v)); }
    void UpdateVoiceSetup() override { calls.push_back("update"); }
    void ProcessMidi(uint32_t message) override { calls.push_back(Text("midi %X", message)); }
    void Render(float* left, float* right, uint32_t frames, float, float tempo) override {
        for (uint32_t i = 0; i < frames; ++i, ++frame)
            left[i] = right[i] = signal ? signal(frame) : 0;
        calls.push_back("render " + std::to_string(int(tempo)));
    }
    void CollectChanges() override {}
    void Write(const float* l, const float*, size_t n) override { out.insert(out.end(), l, l + n); }
};

TEST(RenderLoop, MidiMessagesAndControllersBecomeHostCalls) {
    const ControlIds ids{1, 2, 3, 4, 5, 6}; // modwheel, expression, sustain, bend, pressure, off
    const uint8_t messages[][3] = {
        {0x91, 60, 100}, {0xA1, 60, 33},     {0xB0, 1, 127}, {0xB0, 11, 0},  {0xB0, 64, 64},
        {0xE0, 0, 0x40}, {0xE0, 0x7F, 0x7F}, {0xE0, 0, 0},   {0xD0, 127, 0}, {0xB0, 123, 0},
        {0xB0, 7, 100},  {0xC0, 5, 0},       {0x81, 60, 64}};
    SmfFile file{0, 480, {{}}};
    for (const auto& m : messages)
        file.tracks[0].push_back({0, 0, SmfEventType::Channel, m[0], m[1], m[2]});
    Timeline timeline = BuildTimeline(file, 1000, ids);
    timeline.endFrame = 32; // one block
    // Controllers before UpdateVoiceSetup; all notes off keeps its place among the notes.
    EXPECT_EQ(Session(timeline, 0).calls,
              (Strings{"param 1=1", "param 2=0", "param 3=0.503937006", "param 4=0.5",
                       "param 4=0.999938965", "param 4=0", "param 5=1", "update", "midi 643C91",
                       "midi 213CA1", "param 6=1", "midi 403C81", "render 120"}));
    // Controllers the engine does not have are dropped, notes still pass.
    EXPECT_EQ(BuildTimeline(file, 44100, {}).actions.size(), 3u);
}

TEST(RenderLoop, ActionsFallIntoTheirBlockInHostOrderWithTheirTempo) {
    Timeline t{{}, 128, 96.0f};
    t.actions = {{0, Kind::Midi, 0, 0, 0x90},  {31, Kind::Param, 7, 0.25f},
                 {31, Kind::Midi, 0, 0, 0x91}, {31, Kind::Immediate, 9, 1.0f},
                 {32, Kind::Midi, 0, 0, 0x92}, {40, Kind::Param, 8, 0.5f},
                 {70, Kind::Tempo, 0, 140.0f}};
    const Session run(t, 0);
    // Parameters before UpdateVoiceSetup (which clears trigger bits), then the
    // notes and immediate actions in their order, then Render.
    EXPECT_EQ(run.calls, (Strings{"param 7=0.25", "update", "midi 90", "midi 91", "param 9=1",
                                  "render 96", "param 8=0.5", "update", "midi 92", "render 96",
                                  "update", "render 140", "update", "render 140"}));
}

TEST(RenderLoop, TheTailEndsAPadAfterTheSoundStopsOrAtTheLimit) {
    const float quiet = float(0.1 * std::pow(10.0, RenderSettings{}.silenceDb / 20.0));
    const int64_t pad = 200; // silencePad at 1000 Hz
    const std::tuple<int64_t, double, Signal, int64_t, bool> cases[] = {
        // endFrame, tail, signal, frames written, tail capped
        {1001, 0, [](int64_t) { return 0.5f; }, 1001, false},  // not a whole number of blocks
        {2000, 10, [](int64_t) { return 0.0f; }, 2000, false}, // silence: no tail
        // A release until frame 1500, then noise below the threshold: 1504 starts a silent block.
        {500, 10, [&](int64_t f) { return f < 1500 ? 0.1f : quiet; }, 1504 + pad, false},
        // Echoes: a gap of 0.5 s, shorter than the hold, is kept.
        {100, 10, [](int64_t f) { return f < 800 || (f >= 1312 && f < 1600) ? -0.2f : 0.0f; },
         1600 + pad, false},
        {300, 2.5, [](int64_t f) { return f % 2 ? 0.01f : -0.01f; }, 300 + 2500, true},
    };
    for (const auto& [endFrame, tail, signal, frames, capped] : cases) {
        const Session run(Timeline{{}, endFrame}, tail, signal);
        EXPECT_EQ(run.stats.frames, frames) << endFrame;
        EXPECT_EQ(run.stats.tailCapped, capped) << endFrame;
        EXPECT_FLOAT_EQ(run.stats.peak, std::fabs(signal(0))) << endFrame;
        ASSERT_EQ(run.out.size(), size_t(frames)) << endFrame;
        for (int64_t f = 0; f < frames; ++f) // the rendered sound, each frame at its own place
            if (run.out[size_t(f)] != signal(f)) FAIL() << endFrame << ": frame " << f;
    }
}

TEST(RenderLoop, ProgressCanAbortTheRender) {
    const auto stop = [](const RenderProgress& p) { return p.frames < 96 && p.endFrame == 10000; };
    EXPECT_THROW(Session(Timeline{{}, 10000}, 0, {}, stop), RenderAborted);
}
