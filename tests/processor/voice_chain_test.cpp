// The whole voice chain and the effect slots through the host interface.
#include "dsp/fastmath.h"
#include "engine_harness.h"
#include "processor/signalbank.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using VantorTest::EngineHarness;
using VantorTest::Stereo;

namespace {

float Peak(const std::vector<float>& samples, size_t from = 0) {
    float peak = 0.0f;
    for (size_t i = from; i < samples.size(); ++i) peak = std::max(peak, std::fabs(samples[i]));
    return peak;
}

bool AllFinite(const Stereo& out) {
    return std::all_of(out.left.begin(), out.left.end(),
                       [](float s) { return std::isfinite(s); }) &&
           std::all_of(out.right.begin(), out.right.end(),
                       [](float s) { return std::isfinite(s); });
}

// Rising zero crossings of a sawtooth, interpolated between samples.
std::vector<double> Crossings(const std::vector<float>& x) {
    std::vector<double> at;
    for (size_t n = 1; n < x.size(); ++n)
        if (x[n - 1] < 0.0f && x[n] >= 0.0f) at.push_back(n - 1 + x[n - 1] / (x[n - 1] - x[n]));
    return at;
}

void SawVoice(EngineHarness& h) {
    h.SetupSingleVoicePatch();
    h.Set("voice1_osc1_saw-on", 1.0f);
    h.Set("voice1_osc1_keyboard_follow", 1.0f);
    h.Set("voice1_osc1_freq", 12.0f / 63.0f);
    h.Set("voice1_osc1_volume", 1.0f);
}

} // namespace

TEST(VoiceChain, SawtoothPlaysTheKeysPitch) {
    EngineHarness h;
    SawVoice(h);
    h.Set("voice1_vcf_cutoff", 1.0f);
    h.NoteOn(69);
    h.RenderBlocks(10);
    const std::vector<double> crossings = Crossings(h.RenderBlocks(44100 / 32).left);
    ASSERT_GT(crossings.size(), 100u);
    const double measured =
        (crossings.size() - 1) * 44100.0 / (crossings.back() - crossings.front());
    // Key base is the note table entry of key - 12; freq 12/63 adds 12 "semitones".
    const double expected =
        Norvell::dsp::FastPow2(0.083213426f * 12.0f) * Norvell::dsp::NoteFrequencies()[69 - 12];
    EXPECT_NEAR(measured, expected, 0.5);
}

TEST(VoiceChain, EqualTimeGlideTakesTheLagTableTime) {
    // Entry 20 of the equal-time table: 0.125 s from key 48 to key 60; the
    // oscillator rounds the gliding key, so key 60 sounds from 11.5/12 of it.
    EngineHarness h;
    SawVoice(h);
    h.Set("voice1_vcf_cutoff", 1.0f);
    h.Set("voice1_osc1_lag_on", 1.0f);
    h.Set("voice1_lag_input_selector", 6.5f / 28.0f);
    h.Set("voice1_lag_rate", 20.0f / 63.0f);
    h.Set("voice1_lag_is_linear", 1.0f);
    h.Set("voice1_lag_equal_time", 1.0f);
    h.NoteOn(48);
    h.RenderBlocks(400);
    h.NoteOff(48);
    h.NoteOn(60);
    const std::vector<double> at = Crossings(h.RenderBlocks(300).left);
    const double key60 =
        Norvell::dsp::FastPow2(0.083213426f * 12.0f) * Norvell::dsp::NoteFrequencies()[60 - 12];
    double reached = 0.0;
    for (size_t i = 1; i < at.size(); ++i)
        if (std::fabs(44100.0 / (at[i] - at[i - 1]) / key60 - 1.0) > 0.01)
            reached = at[i] / 44100.0;
    EXPECT_NEAR(reached, 0.125 * 11.5 / 12.0, 0.005);
}

TEST(VoiceChain, FilterSweepInEveryModeStaysFiniteAndBounded) {
    for (int mode = 0; mode < 15; ++mode) {
        EngineHarness h;
        SawVoice(h);
        h.Set("voice1_vcf_type", (mode + 0.5f) / 15.0f);
        h.Set("voice1_vcf_res", 1.0f);
        h.NoteOn(45);
        float peak = 0.0f;
        for (int step = 0; step <= 64; ++step) {
            h.Set("voice1_vcf_cutoff", step / 64.0f);
            const Stereo out = h.RenderBlocks(8);
            ASSERT_TRUE(AllFinite(out)) << "mode " << mode << " step " << step;
            peak = std::max(peak, Peak(out.left));
        }
        EXPECT_LT(peak, 20.0f) << "mode " << mode;
        EXPECT_GT(peak, 0.0f) << "mode " << mode;
    }
}

namespace {

void EffectSlots(EngineHarness& h, int type0, int type1) {
    h.Set("effect0_selector", (type0 + 0.5f) / 7.0f);
    h.Set("effect1_selector", (type1 + 0.5f) / 7.0f);
    h.Set("effect0_active", 1.0f);
    h.Set("effect1_active", 1.0f);
    for (const char* slot : {"fx1_", "fx2_"}) {
        const std::string s = slot;
        for (const char* fx : {"delay", "phaser", "dubdelay", "flanger", "chorus", "reverb"})
            h.Set(s + fx + "_dry_wet", 0.5f);
        h.Set(s + "delay_feedback1", 0.7f);
        h.Set(s + "delay_time1", 0.4f);
        h.Set(s + "dubdelay_feedback", 0.7f);
        h.Set(s + "flanger_depth", 0.5f);
        h.Set(s + "chorus_amount", 0.5f);
        h.Set(s + "chorus_delay", 0.5f);
        h.Set(s + "reverb_in_gain", 1.0f);
        h.Set(s + "reverb_decay", 0.9f);
        h.Set(s + "reverb_time", 0.2f);
        h.Set(s + "phaser_depth1", 0.5f);
        h.Set(s + "phaser_feedback1", 0.9f);
    }
}

} // namespace

TEST(EffectSlots, EveryPairOfTypesRendersFiniteAudio) {
    for (int type0 = 0; type0 < 6; ++type0) {
        for (int type1 = 0; type1 < 6; ++type1) {
            EngineHarness h;
            SawVoice(h);
            h.Set("voice1_vcf_cutoff", 1.0f);
            EffectSlots(h, type0 + 1, type1 + 1);
            h.NoteOn(57);
            Stereo out = h.RenderBlocks(200);
            h.NoteOff(57);
            h.Set("voice1_isenable", 0.0f);
            const Stereo tail = h.RenderBlocks(200);
            ASSERT_TRUE(AllFinite(out)) << type0 + 1 << "/" << type1 + 1;
            ASSERT_TRUE(AllFinite(tail)) << type0 + 1 << "/" << type1 + 1;
            EXPECT_LT(Peak(out.left), 8.0f) << type0 + 1 << "/" << type1 + 1;
        }
    }
}

namespace {
// A short note through the stereo delay with time1 0.5 at 48 kHz; dryWet 0
// gives the dry signal, 1 the echoes alone.
std::vector<float> DelayedNote(float dryWet) {
    EngineHarness h(48000.0f);
    SawVoice(h);
    h.Set("voice1_vcf_cutoff", 1.0f);
    h.Set("voice1_vca1_gain", 0.0f); // silent until envelope 1 opens VCA 1
    h.Set("voice1_env1_sustain", 1.0f);
    h.Set("voice1_env1_amp", 1.0f);
    h.Set("voice1_matrix1_src", 11.5f / 28.0f);
    h.Set("voice1_matrix1_dest", 9.5f / 48.0f);
    h.Set("voice1_matrix1_amount", 1.0f);
    h.Set("effect0_selector", 1.5f / 7.0f);
    h.Set("effect0_active", 1.0f);
    h.Set("fx1_delay_time1", 0.5f);
    h.Set("fx1_delay_time2", 0.5f);
    h.Set("fx1_delay_dry_wet", dryWet);
    h.RenderBlocks(400); // let the dry/wet smoother settle
    h.NoteOn(69);
    Stereo out = h.RenderBlocks(20);
    h.NoteOff(69);
    const Stereo rest = h.RenderBlocks(400);
    out.left.insert(out.left.end(), rest.left.begin(), rest.left.end());
    return out.left;
}
} // namespace

TEST(EffectSlots, StereoDelayEchoArrivesAtTheFreeTime) {
    // time1 0.5 gives 2 x 3200 = 6400 samples whatever the rate.
    const std::vector<float> dry = DelayedNote(0.0f);
    const std::vector<float> wet = DelayedNote(1.0f);
    size_t best = 0;
    double bestScore = 0.0;
    for (size_t lag = 6000; lag < 6800; ++lag) {
        double score = 0.0;
        for (size_t n = 0; n + lag < wet.size() && n < 2000; ++n) score += dry[n] * wet[n + lag];
        if (score > bestScore) {
            bestScore = score;
            best = lag;
        }
    }
    EXPECT_EQ(best, 6400u);
}

TEST(EffectSlots, ReverbTailDecays) {
    EngineHarness h;
    SawVoice(h);
    h.Set("voice1_vcf_cutoff", 1.0f);
    h.Set("effect0_selector", 6.5f / 7.0f);
    h.Set("effect0_active", 1.0f);
    h.Set("fx1_reverb_dry_wet", 1.0f);
    h.Set("fx1_reverb_in_gain", 1.0f);
    h.Set("fx1_reverb_decay", 0.8f);
    h.Set("fx1_reverb_time", 0.1f);
    h.Set("fx1_reverb_brightness", 1.0f);
    h.RenderBlocks(100);
    h.NoteOn(60);
    h.RenderBlocks(50);
    h.NoteOff(60);
    h.Set("voice1_isenable", 0.0f);
    const Stereo tail = h.RenderBlocks(2000);
    const size_t second = 44100 / 32 * 32;
    const float early = Peak(std::vector<float>(tail.left.begin(), tail.left.begin() + 4410));
    const float late = Peak(tail.left, second);
    EXPECT_GT(early, 0.01f);
    EXPECT_LT(late, early * 0.1f);
}

// A source chosen in the block before it is first used is wired in that same
// block: the lag hears the key of a note that arrives with the voice, and a
// ramp that only an LFO selects runs from the block of the selection.
TEST(VoiceChain, SourceSelectionsTakeEffectInTheirFirstBlock) {
    struct Case {
        const char* name;
        const char* selector;
        int source;
        bool warmUp; // note held for a while before the selection
    };
    const Case cases[] = {
        {"lag hears the key", "voice1_lag_input_selector", 6, false},
        {"ramp selected by an LFO", "voice1_lfo1_input_selector", 24, true},
    };
    for (const Case& c : cases) {
        EngineHarness h;
        SawVoice(h);
        h.Set("voice1_osc1_lag_on", 1.0f);
        h.NoteOn(60);
        if (c.warmUp) h.RenderBlocks(4);
        h.Set(c.selector, (c.source + 0.5f) / 28.0f);
        h.RenderBlocks(1);
        const auto& voice = h.Processor().Signals().voices[0];
        const float* written = c.source == 6 ? voice.lag : voice.ramp[0];
        EXPECT_GT(written[31], 0.0f) << c.name;
    }
}

TEST(VoiceChain, SampleAndHoldOfALaterLfoTakesItsPreviousBlock) {
    // LFO 1 holds LFO 2, which runs after it in the voice: each step takes
    // LFO 2's value of the block before, whatever way the LFOs are grouped.
    EngineHarness h;
    SawVoice(h);
    h.Set("voice1_lfo1_wave", 1.0f);
    h.Set("voice1_lfo1_speed", 0.9f); // steps at varying points of the block
    h.Set("voice1_lfo1_amp", 1.0f);
    h.Set("voice1_lfo1_input_selector", (17 + 0.5f) / 28.0f);
    h.Set("voice1_lfo2_speed", 1.0f);
    h.Set("voice1_lfo2_amp", 1.0f);
    h.NoteOn(60);
    const auto& voice = h.Processor().Signals().voices[0];
    int steps = 0;
    for (int b = 0; b < 1000; ++b) {
        float before[32];
        std::copy_n(voice.lfoOut[1], 32, before);
        h.RenderBlocks(1);
        for (int n = 0; n + 1 < 32; ++n) {
            if (voice.lfoTrigger[0][n] != 1.0f || voice.lfoTrigger[0][n + 1] == 1.0f) continue;
            EXPECT_EQ(voice.lfoOut[0][n + 1], before[n]) << b << " " << n;
            EXPECT_NE(voice.lfoOut[0][n + 1], voice.lfoOut[1][n]) << b << " " << n;
            ++steps;
        }
    }
    EXPECT_GT(steps, 3);
}
