// The block processor: any host block size gives the engine's own 32-frame
// output, and queued actions land on the first engine block at or after their frame.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "hostcore/blockprocessor.h"
#include "hostcore/engine.h"
#include "hostcore/preset.h"

using namespace Norvell::HostCore;

namespace {

constexpr uint32_t kBlock = 32;
const uint32_t kHostSizes[] = {1, 17, 32, 256, 1000, 4096};

// Plays the frame index; logs at which frame each parameter and message arrives.
struct Recorder : Host {
    int64_t frame = 0;
    std::vector<std::pair<int64_t, uint32_t>> arrivals; // frame, id or message
    std::vector<std::string> order;
    void SetParam(uint32_t id, float) override {
        arrivals.push_back({frame, id});
        order.push_back("param");
    }
    void UpdateVoiceSetup() override { order.push_back("update"); }
    void ProcessMidi(uint32_t message) override {
        arrivals.push_back({frame, message});
        order.push_back("midi");
    }
    void Render(float* left, float* right, uint32_t frames, float, float) override {
        for (uint32_t i = 0; i < frames; ++i, ++frame) left[i] = right[i] = float(frame);
        order.push_back("render");
    }
    void CollectChanges() override { order.push_back("changes"); }
};

HostAction Param(uint32_t id) {
    HostAction a;
    a.kind = HostAction::Kind::Param;
    a.id = id;
    return a;
}

} // namespace

TEST(BlockProcessor, CarriesFramesAcrossAnyHostBlockAndQueuesToTheNextBoundary) {
    const int64_t stamps[] = {0, 1, 31, 32, 33, 63, 64, 100, 1000, 4095, 4096, 5000};
    for (uint32_t size : kHostSizes) {
        Recorder host;
        BlockProcessor processor(host, kBlock, 44100.0f, 64);
        std::vector<float> left(size), right(size);
        size_t next = 0;
        int64_t start = 0;
        for (; start < 6000; start += size) {
            for (; next < std::size(stamps) && stamps[next] < start + size; ++next)
                ASSERT_TRUE(processor.Queue(Param(uint32_t(next)), uint32_t(stamps[next] - start)));
            processor.Process(left.data(), right.data(), size);
            for (uint32_t i = 0; i < size; ++i) ASSERT_EQ(left[i], float(start + i)) << size;
        }
        ASSERT_EQ(host.arrivals.size(), std::size(stamps)) << size;
        for (const auto& [frame, id] : host.arrivals) {
            const int64_t due = (stamps[id] + kBlock - 1) / kBlock * kBlock;
            EXPECT_EQ(frame, due) << "host block " << size << ", action at " << stamps[id];
        }
    }
}

TEST(BlockProcessor, CallOrderPerBlockAndFullQueue) {
    Recorder host;
    BlockProcessor processor(host, kBlock, 44100.0f, 2);
    HostAction note;
    note.message = 0x403C90;
    EXPECT_TRUE(processor.Queue(note, 0));
    EXPECT_TRUE(processor.Queue(Param(7), 0));
    EXPECT_FALSE(processor.Queue(Param(8), 0));
    EXPECT_EQ(processor.Dropped(), 1u);
    float l[kBlock], r[kBlock];
    processor.Process(l, r, kBlock);
    EXPECT_EQ(host.order,
              (std::vector<std::string>{"param", "update", "midi", "render", "changes"}));
}

// The real engine: a host block of any size renders the same bytes as the
// renderer's fixed 32-frame loop when every event sits on a 32-frame boundary.
TEST(BlockProcessor, AnyHostBlockSizeMatchesTheEngineLoopExactly) {
    setenv("VANTOR_SEED", "11", 1);
    const uint32_t rate = 44100, total = 1400 * kBlock;
    struct Event {
        uint8_t status, data1, data2;
        uint32_t frame;
    };
    const Event events[] = {{0x90, 60, 100, 0},    {0x90, 67, 90, 3200},   {0xB0, 1, 100, 6400},
                            {0xE0, 0, 0x60, 9600}, {0x80, 60, 0, 19200},   {0xD0, 80, 0, 22400},
                            {0xB0, 123, 0, 28800}, {0x90, 72, 127, 32000}, {0x80, 72, 0, 40000}};

    auto render = [&](uint32_t hostSize) {
        Engine engine(VANTOR_ENGINE_DIR "/vantorengine.so");
        engine.Start(float(rate));
        const ParamDirectory params = engine.ReadParams();
        for (const auto& v : ResolvePreset(ReadPreset(VANTOR_PRESET_DIR "/init.json"), params))
            engine.SetParam(v.id, v.value);
        engine.SetParam(*params.Find("voice1_osc1_noise-on"), 1.0f); // draws on the seed
        const ControlIds controls = ControlIds::From(params);
        std::vector<float> out;
        std::vector<float> left(hostSize), right(hostSize);
        if (hostSize == 0) { // the reference: the engine's calls written out per block
            left.resize(kBlock);
            right.resize(kBlock);
            size_t next = 0;
            for (uint32_t start = 0; start < total; start += kBlock) {
                std::vector<HostAction> due;
                for (; next < std::size(events) && events[next].frame < start + kBlock; ++next)
                    due.push_back(*MapMidi(events[next].status, events[next].data1,
                                           events[next].data2, controls));
                for (const auto& a : due)
                    if (a.kind == HostAction::Kind::Param) engine.SetParam(a.id, a.value);
                engine.UpdateVoiceSetup();
                for (const auto& a : due)
                    if (a.kind == HostAction::Kind::Midi)
                        engine.ProcessMidi(a.message);
                    else if (a.kind == HostAction::Kind::Immediate)
                        engine.SetParam(a.id, a.value);
                engine.Render(left.data(), right.data(), kBlock, float(rate), 120.0f);
                engine.CollectChanges();
                for (uint32_t i = 0; i < kBlock; ++i) {
                    out.push_back(left[i]);
                    out.push_back(right[i]);
                }
            }
            return out;
        }
        BlockProcessor processor(engine, kBlock, float(rate));
        size_t next = 0;
        for (uint32_t start = 0; start < total; start += hostSize) {
            const uint32_t n = std::min(hostSize, total - start);
            for (; next < std::size(events) && events[next].frame < start + n; ++next)
                processor.Queue(
                    *MapMidi(events[next].status, events[next].data1, events[next].data2, controls),
                    events[next].frame - start);
            processor.Process(left.data(), right.data(), n);
            for (uint32_t i = 0; i < n; ++i) {
                out.push_back(left[i]);
                out.push_back(right[i]);
            }
        }
        return out;
    };

    const std::vector<float> reference = render(0);
    float peak = 0;
    for (float v : reference) peak = std::max(peak, std::fabs(v));
    ASSERT_GT(peak, 0.01f) << "the reference is silent";
    for (uint32_t size : kHostSizes) {
        const std::vector<float> out = render(size);
        ASSERT_EQ(out.size(), reference.size());
        EXPECT_EQ(0, std::memcmp(out.data(), reference.data(), out.size() * sizeof(float)))
            << "host block " << size;
    }
}
