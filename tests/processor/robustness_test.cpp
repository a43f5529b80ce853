// A hostile host: non-finite and out-of-range values, bad state blobs, absurd
// sample rates and a malformed description must never leave the engine
// producing non-finite output, and it must recover from whatever got in.
#include "engine_harness.h"
#include "processor/modules.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <random>

using Engine = Norvell::Vantor::VantorProcessor;
using VantorTest::EngineHarness;

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

// Largest |sample| over the blocks, infinity when any sample is not finite.
float Peak(const VantorTest::Stereo& s) {
    float peak = 0.0f;
    for (const auto* channel : {&s.left, &s.right})
        for (float x : *channel) peak = std::isfinite(x) ? std::max(peak, std::fabs(x)) : kInf;
    return peak;
}

float Selector(int type) {
    return (type + 0.5f) / 7.0f;
}

// A held chord through effect slot 1 of the given type.
void PlayThroughEffect(EngineHarness& h, int type) {
    h.SetupModulatedPatch(true);
    h.Set("effect0_selector", Selector(type));
    h.Set("effect0_active", 1.0f);
    for (int key : {48, 55, 60, 64}) h.NoteOn(key);
}

std::vector<uint8_t> State(Engine& p) {
    uint64_t size = 0;
    p.GetState(nullptr, &size);
    std::vector<uint8_t> blob(size);
    p.GetState(blob.data(), &size);
    return blob;
}

TEST(Robustness, NonFiniteValuesAreRefusedAndTheOldValueKept) {
    struct Case {
        const char* name;
        int effect;
    } cases[] = {{"voice1_env1_sustain", 0},
                 {"fx1_delay_dry_wet", 1},
                 {"fx1_reverb_dry_wet", 6},
                 {"fx1_phaser_feedback1", 2}};
    for (const Case& c : cases) {
        for (float bad : {kNaN, kInf, -kInf}) {
            EngineHarness h;
            PlayThroughEffect(h, c.effect);
            h.Set(c.name, 0.5f);
            h.RenderBlocks(10);
            EXPECT_FALSE(h.Processor().SetParam(h.Id(c.name), bad)) << c.name;
            EXPECT_EQ(h.Get(c.name), 0.5f) << c.name;
            EXPECT_LT(Peak(h.RenderBlocks(200)), 6.0f) << c.name << " " << bad;
        }
    }
}

// Values far outside 0..1 are clamped where a module's formula would diverge:
// the output stays finite and bounded without any reset being needed.
TEST(Robustness, OutOfRangeEffectValuesStayBounded) {
    struct Case {
        const char* name;
        float value;
        int effect;
    } cases[] = {{"fx1_flanger_feedback", 2.0f, 4},  {"fx1_flanger_feedback", -1.0f, 4},
                 {"fx1_flanger_depth", 2.0f, 4},     {"fx1_reverb_brightness", -1.0f, 6},
                 {"fx1_phaser_feedback1", 1e30f, 2}, {"fx1_phaser_feedback1", -1e30f, 2}};
    for (const Case& c : cases) {
        EngineHarness h;
        PlayThroughEffect(h, c.effect);
        h.Set(c.name, c.value);
        EXPECT_LT(Peak(h.RenderBlocks(3000)), 6.0f) << c.name << " " << c.value;
        EXPECT_EQ(h.Processor().HealedBlocks(), 0u) << c.name << " " << c.value;
    }
}

// Every parameter alone at an absurd finite value: finite output, and no
// module needs a reset to get there.
TEST(Robustness, EveryParameterStaysFiniteForAnyFiniteValue) {
    EngineHarness h;
    PlayThroughEffect(h, 1);
    h.RenderBlocks(4);
    auto& p = h.Processor();
    const std::string prefixes[] = {"voice1_", "fx1_", "fx2_", "master", "vib", "zone1"};
    for (uint32_t id = 0; id < p.GetParamCount(); ++id) {
        VantorParamInfo info;
        p.GetParamInfo(id, &info);
        const std::string name(info.name, strnlen(info.name, sizeof info.name));
        bool wanted = false;
        for (const std::string& prefix : prefixes) wanted = wanted || name.rfind(prefix, 0) == 0;
        if (!wanted || name == "panic" || name == "preset_loading") continue;
        if (name.rfind("fx", 0) == 0) {
            static const char* const types[] = {"delay",   "phaser", "dubdelay",
                                                "flanger", "chorus", "reverb"};
            for (int t = 0; t < 6; ++t)
                if (name.find(std::string("_") + types[t] + "_") != std::string::npos)
                    h.Set(name[2] == '1' ? "effect0_selector" : "effect1_selector",
                          Selector(t + 1));
            h.Set("effect1_active", 1.0f);
        }
        float old = 0.0f;
        p.GetParam(id, &old);
        for (float value : {-1.0f, 2.0f, 1e30f, -1e30f, 1e-40f}) {
            const uint64_t healed = p.HealedBlocks();
            p.SetParam(id, value);
            h.NoteOn(40 + static_cast<int>(id % 40));
            const float peak = Peak(h.RenderBlocks(12));
            EXPECT_LT(peak, 100.0f) << name << " = " << value;
            EXPECT_EQ(p.HealedBlocks(), healed) << name << " = " << value;
            p.SetParam(id, old);
            p.AllNotesOff();
            h.RenderBlocks(2);
        }
    }
}

TEST(Robustness, BadStateBlobsAreRefusedAndChangeNothing) {
    EngineHarness h;
    PlayThroughEffect(h, 6);
    h.RenderBlocks(4);
    auto& p = h.Processor();
    const std::vector<uint8_t> good = State(p);
    const size_t count = good.size() / 4;
    std::vector<std::vector<uint8_t>> bad;
    for (float fill : {kNaN, kInf, -kInf}) {
        std::vector<float> values(count, 0.5f);
        values[count / 2] = fill;
        std::vector<uint8_t> blob(good.size());
        std::memcpy(blob.data(), values.data(), blob.size());
        bad.push_back(blob);
    }
    bad.push_back(std::vector<uint8_t>(good.size(), 0xFF));
    std::mt19937 random(1);
    std::vector<uint8_t> noise(1 << 20);
    for (uint8_t& b : noise) b = static_cast<uint8_t>(random());
    bad.push_back(noise);
    bad.push_back(std::vector<uint8_t>(good.begin(), good.end() - 1));
    bad.push_back(std::vector<uint8_t>(good.size() + 4, 0));
    bad.push_back({});
    for (const auto& blob : bad) {
        EXPECT_FALSE(p.SetState(blob.empty() ? good.data() : blob.data(), blob.size()))
            << blob.size();
        EXPECT_EQ(State(p), good);
    }
    EXPECT_LT(Peak(h.RenderBlocks(100)), 6.0f);
}

// A store of 1e30 everywhere is finite and taken; the output stays finite,
// and a good state with panic brings back ordinary levels.
TEST(Robustness, HugeStateRecoversWithGoodStateAndPanic) {
    EngineHarness h;
    PlayThroughEffect(h, 6);
    h.RenderBlocks(4);
    auto& p = h.Processor();
    const std::vector<uint8_t> good = State(p);
    std::vector<float> huge(good.size() / 4, 1e30f);
    ASSERT_TRUE(p.SetState(huge.data(), good.size()));
    EXPECT_TRUE(std::isfinite(Peak(h.RenderBlocks(100))));
    ASSERT_TRUE(p.SetState(good.data(), good.size()));
    h.Set("panic", 1.0f);
    h.Set("panic", 0.0f);
    h.RenderBlocks(2);
    for (int key : {48, 55, 60, 64}) h.NoteOn(key);
    EXPECT_LT(Peak(h.RenderBlocks(400)), 6.0f);
}

// Poisoned running state (as a bug or a cosmic ray would leave it): the voice
// or effect is reset within the block, the block is dropped, and the count
// is logged at the next call outside rendering.
TEST(Robustness, NonFiniteRunningStateHealsWithinOneBlock) {
    std::string log;
    {
        VantorTest::ScopedLogCapture capture;
        {
            EngineHarness h;
            PlayThroughEffect(h, 1);
            h.RenderBlocks(20);
            auto& m = h.Processor().ModuleRegistry();
            for (auto& filter : m.filters) std::fill_n(filter.pole, 4, kNaN);
            EXPECT_TRUE(std::isfinite(Peak(h.RenderBlocks(1))));
            EXPECT_GE(h.Processor().HealedBlocks(), 1u);
            EXPECT_LT(Peak(h.RenderBlocks(200)), 6.0f);

            const uint64_t before = h.Processor().HealedBlocks();
            auto& line = m.delays[0].line[0].buf;
            for (int32_t i = 0; i < line.Length(); ++i) { // a full turn: back where it started
                line.StoreAhead(0, kInf);
                line.Advance(1);
            }
            EXPECT_TRUE(std::isfinite(Peak(h.RenderBlocks(1))));
            EXPECT_EQ(h.Processor().HealedBlocks(), before + 1);
            uint64_t size = 0;
            h.Processor().GetState(nullptr, &size);
        }
        log = capture.Text();
    }
    EXPECT_NE(log.find("were not finite and their state was reset"), std::string::npos);
}

TEST(Robustness, PanicClearsPoisonedVoiceState) {
    EngineHarness h;
    PlayThroughEffect(h, 0);
    h.RenderBlocks(20);
    auto& m = h.Processor().ModuleRegistry();
    for (auto& filter : m.filters) std::fill_n(filter.pole, 4, kNaN);
    h.Set("panic", 1.0f);
    h.Set("panic", 0.0f);
    for (auto& filter : m.filters) EXPECT_TRUE(filter.pole[0] == 0.0f && filter.pole[3] == 0.0f);
    for (int key : {48, 55, 60, 64}) h.NoteOn(key);
    EXPECT_LT(Peak(h.RenderBlocks(200)), 6.0f);
    EXPECT_EQ(h.Processor().HealedBlocks(), 0u);
}

TEST(Robustness, SampleRatesOutside8kTo768kAreRefused) {
    EngineHarness h;
    PlayThroughEffect(h, 0);
    auto& p = h.Processor();
    for (float bad :
         {1e-6f, 1.0f, 1000.0f, 7999.0f, 768001.0f, 1e9f, kNaN, kInf, 0.0f, -48000.0f}) {
        EXPECT_FALSE(p.SetSampleRate(&bad)) << bad;
        EXPECT_EQ(p.Context().sampleRate, 44100.0f);
    }
    // Render refuses the rate too, renders at the previous one and returns.
    for (float bad : {1e-6f, 1.0f, 1000.0f}) {
        h.sampleRate = bad;
        float left[32];
        float right[32];
        h.RenderBlock(left, right);
        EXPECT_EQ(p.Context().sampleRate, 44100.0f);
    }
    // The lowest and highest rates accepted leave nothing behind.
    for (float edge : {8000.0f, 768000.0f}) {
        h.sampleRate = edge;
        EXPECT_LT(Peak(h.RenderBlocks(50)), 6.0f) << edge;
        h.sampleRate = 48000.0f;
        EXPECT_LT(Peak(h.RenderBlocks(400)), 6.0f) << edge;
    }
}

// A description whose data sizes would overflow the value store fails to load.
TEST(Robustness, OverflowingDataSizesFailTheLoad) {
    VantorTest::ScopedLogCapture capture;
    std::ofstream(capture.Folder() + "/vantorengine.xml")
        << "<rootnode version='1.0.0'><params>"
           "<param name='a' datasize='9223372036854775807'/>"
           "<param name='b' datasize='9223372036854775807'/></params></rootnode>";
    auto* p = new Engine();
    EXPECT_TRUE(p->InitFailed());
    float value = 0.0f;
    for (uint32_t id = 0; id < 2; ++id) p->GetParam(id, &value);
    uint64_t size = 0;
    p->GetState(nullptr, &size);
    EXPECT_LT(size, 16u);
    p->Release(VANTOR_RELEASE_FREE);
}

} // namespace
