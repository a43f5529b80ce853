// MIDI-to-host mapping, channels, program changes, master volume and pan, block
// scheduling and the release tail, against a fake host.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "render/mastermix.h"
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
    Timeline t{{}, 128, 96.0f, {}};
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
        const Session run(Timeline{{}, endFrame, 120.0f, {}}, tail, signal);
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
    EXPECT_THROW(Session(Timeline{{}, 10000, 120.0f, {}}, 0, {}, stop), RenderAborted);
}

TEST(RenderLoop, ChannelsProgramsAndMixChangesAreSortedOut) {
    SmfFile file{0, 480, {{}}};
    const uint8_t messages[][3] = {{0x90, 60, 100}, {0x99, 36, 100}, {0xC0, 4, 0}, {0xC9, 4, 0},
                                   {0xC0, 5, 0},    {0xB0, 7, 100},  {0xB9, 7, 0}, {0xB0, 10, 0},
                                   {0x80, 60, 0},   {0xC0, 4, 0}}; // again: nothing left to change
    for (const auto& m : messages)
        file.tracks[0].push_back({480, 0, SmfEventType::Channel, m[0], m[1], m[2]});
    TimelineOptions options;
    options.channels = 0x01FF; // 1 to 9: no drums
    options.programs[4] = {{11, 0.25f}, {12, 0.75f}, {13, 0.5f}};
    options.startValues = std::vector<float>(14, 0.0f);
    options.startValues[13] = 0.5f; // already there: not sent
    const Timeline t = BuildTimeline(file, 1000, {}, options);
    // Half a second at 120 bpm; program 5 is mapped, 6 is not.
    ASSERT_EQ(t.actions.size(), 4u);
    EXPECT_EQ(t.actions[0].message, PackMidi(0x90, 60, 100));
    EXPECT_EQ(t.actions[1].kind, Kind::Param);
    EXPECT_EQ(t.actions[1].frame, 500);
    EXPECT_EQ(t.actions[1].id, 11u);
    EXPECT_EQ(t.actions[2].value, 0.75f);
    EXPECT_EQ(t.actions[3].message, PackMidi(0x80, 60, 0));
    ASSERT_EQ(t.mix.size(), 2u);
    EXPECT_EQ(t.mix[0].kind, MixChange::Kind::Volume);
    EXPECT_EQ(t.mix[0].value, 100);
    EXPECT_EQ(t.mix[1].kind, MixChange::Kind::Pan);
    EXPECT_EQ(t.mix[1].frame, 500);
}

TEST(RenderLoop, VolumeAndPanGlideWithinTheBlockOfTheirChange) {
    Timeline t{{}, 128, 120.0f, {}};
    t.mix = {{40, MixChange::Kind::Volume, 0}, {70, MixChange::Kind::Pan, 1}};
    const Session run(t, 0, [](int64_t) { return 0.5f; });
    ASSERT_EQ(run.out.size(), 128u);                                           // the left channel
    for (int64_t f = 0; f < 32; ++f) EXPECT_EQ(run.out[size_t(f)], 0.5f) << f; // no CC yet
    for (int64_t f = 32; f < 63; ++f) // fading to silence across the block, no step
        EXPECT_NEAR(run.out[size_t(f)], 0.5f * (1.0f - float(f - 31) / 32.0f), 1e-6f) << f;
    for (int64_t f = 63; f < 128; ++f) EXPECT_EQ(run.out[size_t(f)], 0.0f) << f;
}

TEST(RenderLoop, VolumeAndPanLaws) {
    EXPECT_EQ(VolumeGain(127), 1.0);
    EXPECT_EQ(VolumeGain(0), 0.0);
    EXPECT_NEAR(20.0 * std::log10(VolumeGain(100)), 40.0 * std::log10(100.0 / 127.0), 1e-12);
    const auto centre = PanLaw(64);
    EXPECT_EQ(centre.left, 1.0);
    EXPECT_EQ(centre.right, 1.0);
    for (const uint8_t hardLeft : {0, 1}) {
        EXPECT_EQ(PanLaw(hardLeft).left, 1.0);
        EXPECT_NEAR(PanLaw(hardLeft).right, 0.0, 1e-15);
    }
    EXPECT_NEAR(PanLaw(127).left, 0.0, 1e-15);
    EXPECT_EQ(PanLaw(127).right, 1.0);
    // Half-way to one side (95.5) the other channel is at -3 dB.
    EXPECT_GT(PanLaw(95).left, std::sqrt(0.5));
    EXPECT_LT(PanLaw(96).left, std::sqrt(0.5));
    EXPECT_GT(PanLaw(33).right, std::sqrt(0.5));
    EXPECT_LT(PanLaw(32).right, std::sqrt(0.5));
    double previous = 2.0;
    for (int cc = 64; cc <= 127; ++cc) { // the far side only ever fades
        EXPECT_LE(PanLaw(uint8_t(cc)).left, previous) << cc;
        previous = PanLaw(uint8_t(cc)).left;
    }
}
