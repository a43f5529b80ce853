// The voice mix, DC removal and master volume; voices kept alive by an open VCA;
// envelopes that feed nothing are not run.
#include "engine_harness.h"
#include "processor/signalbank.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>

using VantorTest::EngineHarness;

namespace {

// Voices 1 and 2 in preset mode, each a sawtooth through an open filter.
void TwoSawVoices(EngineHarness& h) {
    h.SetupSingleVoicePatch();
    h.Set("voice2_isenable", 1.0f);
    for (const char* v : {"voice1_", "voice2_"}) {
        const std::pair<const char*, float> patch[] = {
            {"osc1_saw-on", 1.0f}, {"osc1_keyboard_follow", 1.0f}, {"osc1_freq", 12 / 63.0f},
            {"osc1_volume", 0.5f}, {"vcf_type", 3.5f / 15},        {"vcf_cutoff", 0.9f}};
        for (const auto& [name, value] : patch) h.Set(std::string(v) + name, value);
    }
}

} // namespace

// left += (1 - pan) volume VCA 2, right += pan volume VCA 2, plus the ambient noise;
// a 27.5 Hz one-pole is subtracted from each side; then the master volume.
TEST(Mix, PanVolumeDcRemovalAndMasterVolume) {
    for (float rate : {44100.0f, 96000.0f}) {
        EngineHarness h(rate);
        TwoSawVoices(h);
        const float pans[2] = {0.2f, 0.9f}, volumes[2] = {0.7f, 0.35f};
        for (int v = 0; v < 2; ++v) {
            h.Set("voice" + std::to_string(v + 1) + "_pan", pans[v]);
            h.Set("voice" + std::to_string(v + 1) + "_volume", volumes[v]);
        }
        h.Set("master_volume", 0.8f);
        h.NoteOn(57);
        h.NoteOn(64);
        const auto& s = h.Processor().Signals();
        const float g = 1.0f - std::exp(-172.7876f / rate);
        float yl = 0.0f, yr = 0.0f, left[32], right[32];
        double energy = 0.0;
        for (int b = 0; b < 200; ++b) {
            h.RenderBlock(left, right);
            for (int i = 0; i < 32; ++i) {
                float l = 0.0f, r = 0.0f;
                for (int v = 0; v < 2; ++v) {
                    l += (1.0f - pans[v]) * volumes[v] * s.voices[v].vca[1][i];
                    r += pans[v] * volumes[v] * s.voices[v].vca[1][i];
                }
                l += s.ambientNoise[i];
                r += s.ambientNoise[i];
                yl += (l - yl) * g;
                yr += (r - yr) * g;
                ASSERT_NEAR(left[i], (l - yl) * 0.8f, 1e-5f) << rate << " block " << b << " " << i;
                ASSERT_NEAR(right[i], (r - yr) * 0.8f, 1e-5f) << rate << " block " << b << " " << i;
                energy += std::fabs(s.voices[0].vca[1][i]) + std::fabs(s.voices[1].vca[1][i]);
            }
        }
        EXPECT_GT(energy, 100.0); // both voices sound
    }
}

// Envelope 1 alone on VCA 1's level: when it finishes the voice ends only if VCA 1's own
// gain is 0. Envelope 2, ramp 1 and tracker 1 feed nothing and are not run: their buffers
// stay as they were.
TEST(Mix, FinishedEnvelopeEndsTheVoiceOnlyWithAClosedVca) {
    for (float gain : {0.0f, 0.3f}) {
        EngineHarness h;
        TwoSawVoices(h);
        const std::pair<const char*, float> patch[] = {
            {"vca1_gain", gain},         {"matrix1_src", 11.5f / 28},
            {"matrix1_dest", 9.5f / 48}, {"matrix1_amount", 1.0f},
            {"env1_sustain", 0.5f},      {"env1_amp", 1.0f},
            {"env2_sustain", 1.0f},      {"track1_input_selector", 6.5f / 28},
            {"env2_amp", 1.0f}};
        for (const auto& [name, value] : patch) h.Set(std::string("voice1_") + name, value);
        auto& buffers = h.Processor().Signals().voices[0];
        float* const unused[] = {buffers.env[1], buffers.ramp[0], buffers.track[0]};
        const auto untouched = [](const float* b) {
            return std::all_of(b, b + 32, [](float v) { return v == 7.0f; });
        };
        for (float* b : unused) std::fill(b, b + 32, 7.0f);
        h.NoteOn(60);
        h.RenderBlocks(20);
        h.NoteOff(60);
        h.RenderBlocks(40); // the 6 ms release is long over
        EXPECT_EQ(Norvell::Vantor::HasVoice(h.Processor().Voices().activeVoices, 0), gain > 0.0f)
            << gain;
        for (float* b : unused) EXPECT_TRUE(untouched(b));
        // Envelope 2, ramp 1 and tracker 1 (on the key) now feed the FM amount: they run.
        const int sources[] = {12, 24, 21};
        for (int r = 0; r < 3; ++r) {
            const std::string m = "voice1_matrix" + std::to_string(r + 2) + "_";
            h.Set(m + "src", (sources[r] + 0.5f) / 28);
            h.Set(m + "dest", 11.5f / 48);
        }
        h.NoteOn(62);
        h.RenderBlocks(20);
        EXPECT_EQ(buffers.env[1][31], 1.0f);
        for (float* b : unused) EXPECT_FALSE(untouched(b));
    }
}
