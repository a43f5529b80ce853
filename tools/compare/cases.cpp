#include "cases.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <random>

#include "hostcore/preset.h"

namespace Norvell::Compare {

using HostCore::HostAction;
using HostCore::PackMidi;
using HostCore::ParamDirectory;

namespace {

using Kind = HostAction::Kind;

int64_t At(double seconds, uint32_t rate) {
    return std::llround(seconds * rate);
}

void Note(std::vector<HostAction>& out, uint32_t rate, double on, double off, int key, int vel) {
    out.push_back({At(on, rate), Kind::Midi, 0, 0.0f, PackMidi(0x90, uint8_t(key), uint8_t(vel))});
    out.push_back({At(off, rate), Kind::Midi, 0, 0.0f, PackMidi(0x80, uint8_t(key), 0)});
}

// Chords, a melody with overlapping notes, then a final chord.
void ChordsAndMelody(std::vector<HostAction>& out, uint32_t rate) {
    for (int key : {48, 52, 55, 60}) Note(out, rate, 0.0, 0.8, key, 100);
    const int melody[] = {60, 62, 64, 65, 67, 69, 71, 72, 74, 71};
    for (int i = 0; i < 10; ++i)
        Note(out, rate, 0.9 + 0.13 * i, 1.05 + 0.13 * i, melody[i], 60 + 6 * i);
    for (int key : {45, 52, 57, 61, 64}) Note(out, rate, 2.3, 2.9, key, 90);
}

void Sort(std::vector<HostAction>& actions) {
    std::stable_sort(actions.begin(), actions.end(),
                     [](const HostAction& a, const HostAction& b) { return a.frame < b.frame; });
}

void SetByName(HostCore::Engine& engine, const ParamDirectory& params, const char* name,
               float value) {
    if (auto id = params.Find(name)) engine.SetParam(*id, value);
}

// A preset file over the init preset beside it.
auto PresetSetup(const std::string& path) {
    const auto init = std::filesystem::path(path).parent_path() / "init.json";
    const auto preset = HostCore::ReadPresetOverInit(path, init.string());
    return [preset](HostCore::Engine& engine, const ParamDirectory& params) {
        for (const auto& v : HostCore::ResolvePreset(preset, params))
            engine.SetParam(v.id, v.value);
    };
}

// Saw on oscillator 1, envelope 1 to VCA 1 level, VCA 1 gain 0, VCA 2 gain 1,
// open filter, twelve voices enabled playing voice 1's parameters.
void PlainPatch(HostCore::Engine& engine, const ParamDirectory& params) {
    auto set = [&](const std::string& name, float value) {
        SetByName(engine, params, name.c_str(), value);
    };
    set("master_volume", 0.5f);
    set("master_fine_tune", 0.5f);
    set("pitchbend", 0.5f);
    set("presetmode", 0.0f);
    for (int v = 1; v <= 12; ++v) {
        const std::string p = "voice" + std::to_string(v) + "_";
        set(p + "isenable", 1.0f);
        set(p + "volume", 1.0f);
        set(p + "pan", 0.5f);
        set(p + "detune", 0.5f);
        set(p + "transpose", 0.6f);
        set(p + "zone", 0.0f);
    }
    set("voice1_vca1_gain", 0.0f);
    set("voice1_vca2_gain", 1.0f);
    set("voice1_osc1_detune", 0.5f);
    set("voice1_osc2_detune", 0.5f);
    set("voice1_osc1_saw-on", 1.0f);
    set("voice1_osc1_keyboard_follow", 1.0f);
    set("voice1_osc1_freq", 12.0f / 63.0f);
    set("voice1_osc1_volume", 0.5f);
    set("voice1_vcf_cutoff", 1.0f);
    set("voice1_vcf_type", 1.5f / 15.0f);
    set("voice1_env1_sustain", 0.7f);
    set("voice1_env1_amp", 1.0f);
    set("voice1_env1_release", 0.3f);
    // Matrix slot 1: envelope 1 to VCA 1 level.
    set("voice1_matrix1_src", 11.5f / 28.0f);
    set("voice1_matrix1_dest", 9.5f / 48.0f);
    set("voice1_matrix1_amount", 1.0f);
    set("zone1_min_note", 0.0f);
    set("zone1_max_note", 1.0f);
    set("zone1_channel_selector", 0.0f);
    set("zone1_playmode", 2.5f / 6.0f);
}

std::vector<uint32_t> RandomFrames(uint32_t seed, uint32_t low, uint32_t high) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<uint32_t> pick(low, high);
    std::vector<uint32_t> frames(4096);
    for (auto& f : frames) f = pick(random);
    return frames;
}

// Every few milliseconds three continuous voice 1 parameters jump to random values.
void RandomAutomation(std::vector<HostAction>& out, const ParamDirectory& params, uint32_t rate,
                      double seconds, uint32_t seed) {
    std::vector<uint32_t> ids;
    for (uint32_t id = 0; id < params.Size(); ++id)
        if (params.At(id).steps == 0 && params.At(id).name.rfind("voice1_", 0) == 0)
            ids.push_back(id);
    if (ids.empty()) return;
    std::mt19937 random(seed);
    std::uniform_int_distribution<size_t> pick(0, ids.size() - 1);
    std::uniform_real_distribution<float> value(0.0f, 1.0f);
    for (int64_t frame = 0; frame < At(seconds, rate); frame += At(0.004, rate))
        for (int k = 0; k < 3; ++k)
            out.push_back({frame, Kind::Param, ids[pick(random)], value(random), 0});
}

} // namespace

std::vector<Case> BuildCases(const std::string& presetFolder, const ParamDirectory& params) {
    std::vector<Case> cases;
    std::vector<std::filesystem::path> presets;
    for (const auto& entry : std::filesystem::directory_iterator(presetFolder))
        if (entry.path().extension() == ".json") presets.push_back(entry.path());
    std::sort(presets.begin(), presets.end());

    auto chords = [](uint32_t rate) {
        std::vector<HostAction> actions;
        ChordsAndMelody(actions, rate);
        Sort(actions);
        return actions;
    };
    const std::string init = presetFolder + "/init.json";

    for (const auto& path : presets)
        cases.push_back({"preset " + path.stem().string(),
                         48000,
                         3.5,
                         PresetSetup(path.string()),
                         chords(48000),
                         {}});

    for (uint32_t rate : {22050u, 44100u, 48000u, 96000u, 192000u})
        cases.push_back({"plain patch " + std::to_string(rate) + " Hz",
                         rate,
                         3.5,
                         PlainPatch,
                         chords(rate),
                         {}});
    for (uint32_t rate : {22050u, 96000u, 192000u})
        cases.push_back({"init " + std::to_string(rate) + " Hz",
                         rate,
                         3.5,
                         PresetSetup(init),
                         chords(rate),
                         {}});

    cases.push_back({"plain patch, 1-frame blocks", 44100, 1.5, PlainPatch, chords(44100), {1}});
    cases.push_back({"plain patch, random 1..31-frame blocks", 44100, 3.5, PlainPatch,
                     chords(44100), RandomFrames(7, 1, 31)});
    cases.push_back({"init, random 1..31-frame blocks", 48000, 3.5, PresetSetup(init),
                     chords(48000), RandomFrames(8, 1, 31)});

    for (uint32_t seed = 1; seed <= 3; ++seed) {
        const uint32_t rate = seed == 2 ? 44100 : 48000;
        std::vector<HostAction> actions;
        ChordsAndMelody(actions, rate);
        RandomAutomation(actions, params, rate, 3.5, seed);
        Sort(actions);
        cases.push_back({"automation seed " + std::to_string(seed) + " on init", rate, 3.5,
                         PresetSetup(init), actions,
                         seed == 3 ? RandomFrames(seed, 1, 31) : std::vector<uint32_t>{}});
    }
    {
        const uint32_t rate = 48000;
        std::vector<HostAction> actions;
        ChordsAndMelody(actions, rate);
        RandomAutomation(actions, params, rate, 3.5, 11);
        Sort(actions);
        cases.push_back({"automation seed 11 on plain patch", rate, 3.5, PlainPatch, actions, {}});
    }

    // Sustain pedal and play-mode changes while notes come and go.
    for (const char* preset : {"init", "pad", "lead"}) {
        const uint32_t rate = 48000;
        std::vector<HostAction> actions;
        ChordsAndMelody(actions, rate);
        const auto sustain = params.Find("pedal-sustain");
        const auto mode = params.Find("zone1_playmode");
        if (sustain) {
            actions.push_back({At(0.5, rate), Kind::Param, *sustain, 1.0f, 0});
            actions.push_back({At(1.2, rate), Kind::Param, *sustain, 0.0f, 0});
            actions.push_back({At(2.2, rate), Kind::Param, *sustain, 1.0f, 0});
            actions.push_back({At(3.0, rate), Kind::Param, *sustain, 0.0f, 0});
        }
        if (mode)
            for (int k = 0; k < 7; ++k)
                actions.push_back(
                    {At(0.3 + 0.45 * k, rate), Kind::Param, *mode, (float(k) + 0.5f) / 7.0f, 0});
        for (int key : {50, 53, 57}) Note(actions, rate, 1.6, 2.0, key, 80);
        Sort(actions);
        cases.push_back({std::string("sustain and play modes on ") + preset, rate, 3.5,
                         PresetSetup(presetFolder + "/" + preset + ".json"), actions,
                         RandomFrames(20, 8, 32)});
    }
    return cases;
}

std::vector<float> RenderCase(const std::string& library, const Case& c) {
    HostCore::Engine engine(library);
    // The engine seeds its random generator when the processor is created.
    setenv("VANTOR_SEED", kSeed, 1);
    engine.Start(float(c.sampleRate));
    const auto params = engine.ReadParams();
    if (c.setup) c.setup(engine, params);

    const int64_t total = std::llround(c.seconds * c.sampleRate);
    std::vector<float> out;
    out.reserve(size_t(total) * 2);
    std::vector<float> left(4096), right(4096);
    size_t next = 0, turn = 0;
    for (int64_t done = 0; done < total;) {
        const uint32_t frames = c.frames.empty() ? 32u : c.frames[turn++ % c.frames.size()];
        using Kind = HostCore::HostAction::Kind;
        // Actions due before the end of this block, parameters first as a host does.
        size_t end = next;
        while (end < c.actions.size() && c.actions[end].frame < done + frames) ++end;
        for (size_t i = next; i < end; ++i)
            if (c.actions[i].kind == Kind::Param)
                engine.SetParam(c.actions[i].id, c.actions[i].value);
        engine.UpdateVoiceSetup();
        for (size_t i = next; i < end; ++i) {
            if (c.actions[i].kind == Kind::Midi) engine.ProcessMidi(c.actions[i].message);
            if (c.actions[i].kind == Kind::Immediate)
                engine.SetParam(c.actions[i].id, c.actions[i].value);
        }
        next = end;
        engine.Render(left.data(), right.data(), frames, float(c.sampleRate), 120.0f);
        engine.CollectChanges();
        for (uint32_t i = 0; i < frames; ++i) {
            out.push_back(left[i]);
            out.push_back(right[i]);
        }
        done += frames;
    }
    return out;
}

} // namespace Norvell::Compare
