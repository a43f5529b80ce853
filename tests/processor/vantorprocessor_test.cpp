// Processor construction, parameter routing, state and the master actions,
// seen through the host interface.
#include "engine_harness.h"
#include "processor/modules.h"
#include "processor/signalbank.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <thread>

using Norvell::Vantor::kUnboundId;
using Engine = Norvell::Vantor::VantorProcessor;
using VantorTest::EngineHarness;

namespace {

size_t Count(const std::string& text, const std::string& needle) {
    size_t n = 0;
    for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1))
        ++n;
    return n;
}

} // namespace

TEST(ProcessorConstruction, RealDescriptionBindsEveryParameter) {
    VantorTest::ScopedLogCapture capture;
    {
        EngineHarness h;
        EXPECT_FALSE(h.Processor().InitFailed());
        EXPECT_EQ(h.Processor().GetParamCount(), 4806u);
        // paramCount of the info record is only set by Initialize.
        EXPECT_EQ(h.Processor().GetProcessorInfo()->paramCount, 4806u);
    }
    const std::string log = capture.Text();
    EXPECT_EQ(Count(log, "ENGINE INIT OK"), 1u);
    EXPECT_EQ(Count(log, "ENGINE INIT FAILED"), 0u);
    EXPECT_EQ(Count(log, "Failed to set param"), 0u);
    // Written before Initialize, so the count still reads 0.
    EXPECT_NE(log.find("Audio Engine : 0 params"), std::string::npos);
    EXPECT_NE(log.find("Audio Engine : 2 outputs"), std::string::npos);
    EXPECT_NE(log.find("CTOR VantorProcessor\n"), std::string::npos);
    EXPECT_NE(log.find("DTOR VantorProcessor Modulesmodules:196 [ "
                       "Norvell::Vantor::VantorProcessor::Modules::~Modules ] "),
              std::string::npos);
    EXPECT_NE(log.find("Read Audio Engine XML : "), std::string::npos);
}

TEST(ProcessorConstruction, SetParamSrcResults) {
    VantorTest::ScopedLogCapture capture;
    {
        EngineHarness h;
        Engine& p = h.Processor();
        static float value = 0.5f;
        EXPECT_EQ(p.SetParamSrc("vantor_osc-23", "freq", 7, &value), 0);
        EXPECT_EQ(p.ModuleRegistry().oscillators[23].params.bound[0], &value);
        EXPECT_EQ(p.ModuleRegistry().oscillators[23].params.ids[0], 7u);
        EXPECT_EQ(p.SetParamSrc("vantor_osc-24", "freq", 7, &value), 3);
        EXPECT_EQ(p.SetParamSrc("vantor_osc--1", "freq", 7, &value), 3);
        EXPECT_EQ(p.SetParamSrc("vantor_bogus-1", "freq", 7, &value), 3);
        EXPECT_EQ(p.SetParamSrc("vantor_osc-3", "nonsense", 7, &value), 3);
        EXPECT_EQ(p.SetParamSrc("vantor_osc-x", "freq", 7, &value), 4);
        EXPECT_EQ(p.SetParamSrc("vantor_osc-99999999999", "freq", 7, &value), 4);
        EXPECT_EQ(p.SetParamSrc("vantor_master", "panic", 7, &value), 4);
    }
    const std::string log = capture.Text();
    EXPECT_NE(log.find("Out of range instance 24, this module vantor_osc-24 has 24 instances"),
              std::string::npos);
    EXPECT_NE(log.find("this module vantor_bogus does not exist"), std::string::npos);
    EXPECT_NE(log.find("Could not parse the instance number of the module in vantor_osc-x"
                       "exception : invalid stoi argumentvantorprocessor:43 [ "
                       "Norvell::Vantor::VantorProcessor::SetParamSrc ] "),
              std::string::npos);
    EXPECT_NE(log.find("SetParamSrc vantor_osc-23 - 23 - freq - id:7"), std::string::npos);
}

TEST(ProcessorConstruction, FixedChannelZones) {
    EngineHarness h;
    const auto& zones = h.Processor().Voices().zones;
    for (int z = 6; z < 23; ++z) {
        EXPECT_EQ(zones[z].playMode, 5u) << z;
        EXPECT_FLOAT_EQ(zones[z].range.values[1], 1.0f);
        EXPECT_FLOAT_EQ(zones[z].range.values[2], static_cast<float>(z - 6) / 16.0f);
    }
    EXPECT_EQ(zones[0].playMode, Norvell::Vantor::kNoPlayMode);
}

TEST(ParameterRouting, UnknownIdsAndNaNNeverBreakTheProcessor) {
    EngineHarness h;
    Engine& p = h.Processor();
    float value = 3.0f;
    EXPECT_FALSE(p.GetParam(4806, &value));
    EXPECT_EQ(value, 3.0f);
    EXPECT_FALSE(p.SetParam(4806, 1.0f));
    EXPECT_FALSE(p.SetParam(kUnboundId, 1.0f));
    EXPECT_FALSE(p.ProcessMidiMessage(nullptr));
    EXPECT_FALSE(p.Render(nullptr));

    // NaN in every selector: refused, the old value stays, rendering stays finite.
    h.SetupPolyPatch();
    for (const char* name : {"zone1_playmode", "voice1_zone", "effect0_selector", "voice2_isenable",
                             "zone1_min_note", "voice1_matrix1_src", "voice1_matrix1_dest",
                             "voice1_lfo1_wave", "voice1_vcf_type", "vib_wave"})
        EXPECT_FALSE(p.SetParam(h.Id(name), std::nanf("")));
    EXPECT_FLOAT_EQ(h.Get("zone1_playmode"), 2.5f / 6.0f);
    h.Set("effect0_active", 1.0f);
    h.NoteOn(60);
    h.NoteOn(64);
    const auto out = h.RenderBlocks(40);
    for (size_t i = 0; i < out.left.size(); ++i) {
        ASSERT_TRUE(std::isfinite(out.left[i])) << i;
        ASSERT_TRUE(std::isfinite(out.right[i])) << i;
    }
}

TEST(ParameterRouting, MasterActions) {
    EngineHarness h;
    h.SetupPolyPatch();
    auto& voices = h.Processor().Voices();
    h.NoteOn(60);
    h.RenderBlocks(1);
    ASSERT_NE(voices.gateVoices, 0u);

    h.Set("panic", 0.99f); // stored, nothing else
    EXPECT_FLOAT_EQ(h.Get("panic"), 0.99f);
    EXPECT_NE(voices.gateVoices, 0u);
    h.Set("panic", 1.0f);
    EXPECT_EQ(voices.gateVoices, 0u);

    h.NoteOn(62);
    h.RenderBlocks(1);
    ASSERT_NE(voices.gateVoices, 0u);
    h.Set("allnotesoff", 0.0f); // any value
    EXPECT_EQ(voices.gateVoices, 0u);

    h.NoteOn(64);
    h.RenderBlocks(1);
    ASSERT_NE(voices.gateVoices, 0u);
    h.Set("presetloading", 1.0f);
    EXPECT_EQ(voices.gateVoices, 0u);
    // Silence from the next UpdateVoiceSetup on: the cached value decides.
    h.NoteOn(65);
    const auto silent = h.RenderBlocks(4);
    for (float s : silent.left) EXPECT_EQ(s, 0.0f);
    h.Set("presetloading", 0.0f);
    const auto sounding = h.RenderBlocks(4);
    float peak = 0.0f;
    for (float s : sounding.left) peak = std::max(peak, std::fabs(s));
    EXPECT_GT(peak, 0.0f); // at least the ambient noise is back
}

TEST(ParameterRouting, MasterValuesActAfterUpdateVoiceSetup) {
    EngineHarness h;
    h.Set("master_volume", 1.0f);
    h.RenderBlocks(1);
    Engine& p = h.Processor();
    auto& master = p.ModuleRegistry().master;
    p.SetParam(h.Id("master_volume"), 0.25f);
    EXPECT_FLOAT_EQ(master[Norvell::Vantor::kMasterVolume], 1.0f);
    p.UpdateVoiceSetup();
    EXPECT_FLOAT_EQ(master[Norvell::Vantor::kMasterVolume], 0.25f);
}

TEST(ParameterRouting, StateRoundTripAndShortBlobRefused) {
    EngineHarness h;
    Engine& p = h.Processor();
    uint64_t size = 0;
    ASSERT_TRUE(p.GetState(nullptr, &size));
    ASSERT_EQ(size, 4806u * 4u);
    h.Set("voice3_osc2_pulse-width", 0.3f);
    h.Set("fx2_reverb_dry_wet", 0.8f);
    std::vector<uint8_t> blob(size);
    ASSERT_TRUE(p.GetState(blob.data(), &size));

    EngineHarness other;
    ASSERT_TRUE(other.Processor().SetState(blob.data(), blob.size()));
    std::vector<uint8_t> back(size);
    other.Processor().GetState(back.data(), &size);
    EXPECT_EQ(blob, back);
    EXPECT_FLOAT_EQ(other.Get("voice3_osc2_pulse-width"), 0.3f);

    // A short blob is refused whole; a full one runs no side effects.
    std::vector<uint8_t> zeros(8, 0);
    ASSERT_FALSE(other.Processor().SetState(zeros.data(), zeros.size()));
    EXPECT_FLOAT_EQ(other.Get("fx2_reverb_dry_wet"), 0.8f);
    other.Set("panic", 0.5f);
    zeros.assign(size, 0);
    ASSERT_TRUE(other.Processor().SetState(zeros.data(), zeros.size()));
    EXPECT_EQ(other.Get("master_volume"), 0.0f);
    EXPECT_EQ(other.Get("panic"), 0.0f);
}

TEST(ParameterRouting, PresetModeRepointsVoiceLinks) {
    EngineHarness h;
    auto& env7 = h.Processor().ModuleRegistry().envelopes[7]; // voice 2, envelope 3
    h.Set("voice1_env3_attack", 0.3f);
    h.Set("voice2_env3_attack", 0.7f);
    ASSERT_NE(env7.params.bound[1], nullptr);
    EXPECT_FLOAT_EQ(*env7.params.bound[1], 0.7f); // preset mode on after construction
    h.Set("presetmode", 0.0f);
    EXPECT_FLOAT_EQ(*env7.params.bound[1], 0.3f);
    EXPECT_EQ(env7.params.ids[1], h.Id("voice2_env3_attack"));
    h.Set("voice2_env3_attack", 0.9f); // no effect while off
    EXPECT_FLOAT_EQ(*env7.params.bound[1], 0.3f);
    h.Set("presetmode", 1.0f);
    EXPECT_FLOAT_EQ(*env7.params.bound[1], 0.9f);
    // Voice 1's own modules always read their own values.
    EXPECT_FLOAT_EQ(*h.Processor().ModuleRegistry().envelopes[2].params.bound[1], 0.3f);
}

// Switching preset mode off and on again, any number of times, leaves every
// voice reading what it read before: same sound as a processor never switched.
TEST(ParameterRouting, PresetModeRoundTripsKeepTheSound) {
    const auto play = [](int switches) {
        EngineHarness h;
        h.SetupModulatedPatch(false);
        h.Set("presetmode", 1.0f);
        h.Set("voice1_osc1_pulse-width", 0.2f);
        h.Set("voice2_osc1_pulse-width", 0.7f);
        for (int i = 0; i < switches; ++i) {
            h.Set("presetmode", 0.0f);
            h.Set("presetmode", 1.0f);
        }
        for (int key = 48; key < 60; key += 3) h.NoteOn(key);
        return h.RenderBlocks(200);
    };
    const VantorTest::Stereo reference = play(0);
    const VantorTest::Stereo switched = play(5);
    EXPECT_EQ(switched.left, reference.left);
    EXPECT_EQ(switched.right, reference.right);
}

// A switch while the engine plays reaches the running voices' modules in
// the next block, not only their bindings.
TEST(ParameterRouting, PresetModeSwitchReachesRunningVoices) {
    EngineHarness h;
    h.SetupModulatedPatch(false);
    h.Set("presetmode", 1.0f);
    h.Set("voice1_osc1_pulse-width", 0.2f);
    h.Set("voice2_osc1_pulse-width", 0.7f);
    for (int key = 48; key < 60; key += 3) h.NoteOn(key);
    h.RenderBlocks(10);
    const auto& voice2Osc1 = h.Processor().ModuleRegistry().oscillators[2].params;
    ASSERT_FLOAT_EQ(voice2Osc1[Norvell::Vantor::kOscPulseWidth], 0.7f);
    h.Set("presetmode", 0.0f);
    h.RenderBlocks(1);
    EXPECT_FLOAT_EQ(voice2Osc1[Norvell::Vantor::kOscPulseWidth], 0.2f);
}

TEST(BlockRender, ControllerRampsAndPitchbendStart) {
    EngineHarness h;
    h.Set("master_volume", 1.0f);
    h.RenderBlocks(1);
    const auto& bank = h.Processor().Signals();
    // A fresh processor ramps pitchbend from its 0.5 start towards the stored 0.
    for (int n = 0; n < 32; ++n) EXPECT_FLOAT_EQ(bank.pitchbend[n], -0.5f * n / 32.0f);
    h.RenderBlocks(1);
    EXPECT_FLOAT_EQ(bank.pitchbend[0], -0.5f);

    h.Set("modwheel", 1.0f);
    h.RenderBlocks(1);
    EXPECT_FLOAT_EQ(bank.modwheel[0], 0.0f);
    EXPECT_FLOAT_EQ(bank.modwheel[31], 0.5f * 31.0f / 32.0f);
    h.RenderBlocks(1);
    EXPECT_FLOAT_EQ(bank.modwheel[0], 0.5f);
}

TEST(BlockRender, FrameCountAndRateGuards) {
    EngineHarness h;
    Engine& p = h.Processor();
    float left[64];
    float right[64];
    std::fill(std::begin(left), std::end(left), 7.0f);
    std::fill(std::begin(right), std::end(right), 7.0f);
    float* outputs[2] = {left, right};
    VantorRenderContext ctx{};
    ctx.outputs = outputs;
    ctx.frameCount = 0;
    ctx.sampleRate = std::nanf("");
    ctx.tempo = 120.0f;
    EXPECT_FALSE(p.Render(&ctx)); // a refused rate answers false
    EXPECT_EQ(left[0], 7.0f);
    EXPECT_FLOAT_EQ(p.Context().sampleRate, 44100.0f);
    ctx.sampleRate = -1.0f;
    ctx.frameCount = 4096;
    EXPECT_FALSE(p.Render(&ctx));
    EXPECT_EQ(p.Context().frameCount, 32);
    EXPECT_FLOAT_EQ(p.Context().sampleRate, 44100.0f);
    EXPECT_EQ(left[32], 7.0f);
    outputs[1] = nullptr; // a missing channel is skipped
    ctx.frameCount = 32;
    ctx.sampleRate = 48000.0f;
    EXPECT_TRUE(p.Render(&ctx));
    EXPECT_FLOAT_EQ(p.Context().sampleRate, 48000.0f);
}

TEST(BlockRender, WithEveryVoiceDisabledTheOutputIsTheDcFreeNoiseFloor) {
    for (float rate : {44100.0f, 48000.0f}) {
        EngineHarness h(rate);
        h.Set("master_volume", 1.0f);
        const float g = 1.0f - std::exp(-172.7876f / rate); // 27.5 Hz corner
        const auto& bank = h.Processor().Signals();
        float y = 0.0f;
        for (int block = 0; block < 20; ++block) {
            const auto out = h.RenderBlocks(1);
            for (int n = 0; n < 32; ++n) {
                float x = bank.ambientNoise[n];
                y += (x - y) * g;
                x -= y;
                ASSERT_FLOAT_EQ(out.left[n], x) << rate << " block " << block << " sample " << n;
                ASSERT_FLOAT_EQ(out.right[n], x);
            }
        }
    }
}

namespace {
// Output of a processor whose only sound is the noise floor, with the given
// effect slot settings.
VantorTest::Stereo RenderSlots(float selector0, float active0, float selector1, float active1) {
    EngineHarness h;
    h.Set("master_volume", 1.0f);
    h.Set("effect0_selector", selector0);
    h.Set("effect0_active", active0);
    h.Set("effect1_selector", selector1);
    h.Set("effect1_active", active1);
    h.Set("fx1_delay_dry_wet", 1.0f);
    h.Set("fx1_delay_time1", 0.1f);
    h.Set("fx1_reverb_dry_wet", 1.0f);
    h.Set("fx2_reverb_dry_wet", 1.0f);
    h.Set("fx1_reverb_in_gain", 1.0f);
    h.Set("fx2_reverb_in_gain", 1.0f);
    h.Set("fx1_reverb_decay", 0.5f);
    h.Set("fx2_reverb_decay", 0.5f);
    return h.RenderBlocks(100);
}
} // namespace

TEST(BlockRender, EffectSlotSelection) {
    const auto dry = RenderSlots(0.0f, 1.0f, 0.0f, 1.0f);
    EXPECT_EQ(RenderSlots(0.14f, 1.0f, 0.0f, 1.0f).left, dry.left); // type 0 passes through
    EXPECT_NE(RenderSlots(0.15f, 1.0f, 0.0f, 1.0f).left, dry.left); // type 1
    EXPECT_EQ(RenderSlots(0.5f, 0.0f, 0.0f, 1.0f).left, dry.left);  // slot switched off
    // Slot 1 receives the unprocessed mix while slot 0 is off.
    const auto reverbOnly = RenderSlots(0.0f, 1.0f, 1.0f, 1.0f);
    EXPECT_NE(reverbOnly.left, dry.left);
    EXPECT_EQ(RenderSlots(0.5f, 0.0f, 1.0f, 1.0f).left, reverbOnly.left);
    // 1.0 selects the reverb (type 6), as 6.5/7 does.
    EXPECT_EQ(RenderSlots(0.0f, 1.0f, 6.5f / 7.0f, 1.0f).left, reverbOnly.left);
}

TEST(Voices, DisablingAVoiceWithZeroOrNegativeValue) {
    EngineHarness h;
    h.SetupPolyPatch();
    auto& voices = h.Processor().Voices();
    h.NoteOn(60);
    h.NoteOn(62);
    h.RenderBlocks(1);
    ASSERT_TRUE(Norvell::Vantor::HasVoice(voices.gateVoices, 0));
    ASSERT_TRUE(Norvell::Vantor::HasVoice(voices.gateVoices, 1));
    h.Set("voice1_isenable", -1.0f); // stops new notes only
    h.Set("voice2_isenable", 0.0f);  // silences the held note
    h.RenderBlocks(1);
    EXPECT_TRUE(Norvell::Vantor::HasVoice(voices.gateVoices, 0));
    EXPECT_FALSE(Norvell::Vantor::HasVoice(voices.enabledVoices, 0));
    EXPECT_FALSE(Norvell::Vantor::HasVoice(voices.gateVoices, 1));
    EXPECT_FALSE(Norvell::Vantor::HasVoice(voices.activeVoices, 1));
    EXPECT_EQ(voices.voiceNoteMemory[1], Norvell::Vantor::kNoKey);
    EXPECT_EQ(voices.voiceMessage[1], 0u);
    EXPECT_FALSE(h.Processor().SetParam(h.Id("voice3_isenable"), std::nanf(""))); // refused
    h.RenderBlocks(1);
    EXPECT_TRUE(Norvell::Vantor::HasVoice(voices.enabledVoices, 2));
}

TEST(ProcessorConstruction, ProcessorsOnTwoThreadsShareTheLoggerSafely) {
    // Every destructor releases the process-wide logger while the other
    // thread may be logging through it.
    auto churn = [] {
        for (int i = 0; i < 3; ++i) {
            EngineHarness h;
            EXPECT_EQ(h.Processor().GetParamCount(), 4806u);
            float value = 0.0f;
            h.Processor().GetParam(99999, &value); // logs an error line
        }
    };
    std::thread a(churn);
    std::thread b(churn);
    a.join();
    b.join();
}
