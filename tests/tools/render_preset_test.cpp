// Preset files, --set arguments, parameter name suggestions, and the shipped presets.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <set>
#include <string>

#include "../support/test_support.h"
#include "render/paramdirectory.h"
#include "render/preset.h"

using namespace Norvell::Render;

namespace {

ParamDirectory Directory(std::initializer_list<const char*> names) {
    std::vector<ParamDesc> params;
    for (const char* n : names) params.push_back({n, 0});
    return ParamDirectory(std::move(params));
}

std::string ParseError(const std::string& text) {
    try {
        ParsePreset(text, "test.json");
    } catch (const PresetError& e) {
        return e.what();
    }
    return "no error";
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

} // namespace

TEST(Preset, ParsesNamesAndValuesInFileOrder) {
    const Preset p = ParsePreset(R"({"name": "warm", "description": "x",
        "values": {"master_volume": 0.5, "voice1_vcf_cutoff": 1, "a": 0}})",
                                 "warm.json");
    EXPECT_EQ(p.name, "warm");
    ASSERT_EQ(p.values.size(), 3u);
    EXPECT_EQ(p.values[0].first, "master_volume");
    EXPECT_FLOAT_EQ(p.values[0].second, 0.5f);
    EXPECT_EQ(p.values[1].first, "voice1_vcf_cutoff");
    EXPECT_EQ(p.values[2].first, "a");
    EXPECT_EQ(ParsePreset(R"({"values": {}})", "plain.json").name, "plain.json");
}

TEST(Preset, RejectsMalformedFiles) {
    const std::string badJson = ParseError("{\n  \"values\": {\n    \"a\": 0.5,\n  }\n}");
    EXPECT_TRUE(Contains(badJson, "test.json: bad JSON")) << badJson;
    EXPECT_TRUE(Contains(badJson, "line 4")) << badJson;
    EXPECT_TRUE(Contains(ParseError("[1, 2]"), "must be a JSON object"));
    EXPECT_TRUE(Contains(ParseError(R"({"name": "x"})"), "missing \"values\""));
    EXPECT_TRUE(Contains(ParseError(R"({"values": [0.5]})"), "\"values\" must be an object"));
    EXPECT_TRUE(Contains(ParseError(R"({"values": {"a": "0.5"}})"), "'a' must be a number"));
    EXPECT_TRUE(Contains(ParseError(R"({"values": {"a": true}})"), "'a' must be a number"));
    EXPECT_TRUE(Contains(ParseError(R"({"value": {}})"), "unknown key \"value\""));
    EXPECT_TRUE(Contains(ParseError(R"({"name": 3, "values": {}})"), "\"name\" must be a string"));
}

TEST(Preset, RejectsValuesOutsideTheUnitRange) {
    EXPECT_TRUE(Contains(ParseError(R"({"values": {"voice1_pan": 1.5}})"),
                         "value 1.5 of 'voice1_pan' is outside 0..1"));
    EXPECT_TRUE(Contains(ParseError(R"({"values": {"voice1_isenable": -1}})"), "outside 0..1"));
    EXPECT_TRUE(Contains(ParseError(R"({"values": {"x": 1e-40, "y": 1.0000001}})"), "'y'"));
}

TEST(Preset, UnknownNamesAreListedWithTheirClosestMatches) {
    const ParamDirectory params = Directory(
        {"voice1_vcf_cutoff", "voice1_vcf_res", "voice2_vcf_cutoff", "master_volume", "modwheel"});
    Preset p;
    p.source = "bright.json";
    p.values = {{"master_volume", 0.4f}, {"voice1_vcf_cutof", 1.0f}, {"zzzzzzzz", 0.0f}};
    try {
        ResolvePreset(p, params);
        FAIL();
    } catch (const PresetError& e) {
        const std::string text = e.what();
        EXPECT_TRUE(Contains(text, "bright.json: unknown parameter 'voice1_vcf_cutof'; closest "
                                   "matches: voice1_vcf_cutoff, voice2_vcf_cutoff"))
            << text;
        EXPECT_TRUE(Contains(text, "unknown parameter 'zzzzzzzz' (see --list-params)")) << text;
    }
    p.values.resize(1);
    const auto resolved = ResolvePreset(p, params);
    ASSERT_EQ(resolved.size(), 1u);
    EXPECT_EQ(resolved[0].id, 3u);
}

TEST(Preset, ClosestMatchesPreferSmallerEdits) {
    EXPECT_EQ(EditDistance("kitten", "sitting"), 3u);
    EXPECT_EQ(EditDistance("Master_Volume", "master_volume"), 0u);
    const ParamDirectory params =
        Directory({"pitchbend", "pedal-sustain", "sustain-hold", "pedal-expression"});
    EXPECT_EQ(params.Closest("pedal_sustain"), (std::vector<std::string>{"pedal-sustain"}));
    EXPECT_EQ(params.Closest("pitch"), std::vector<std::string>{});
}

TEST(Preset, SetArgumentsNeedANameAndAUnitValue) {
    EXPECT_EQ(ParseAssignment("voice1_vcf_res=0.25"),
              (std::pair<std::string, float>{"voice1_vcf_res", 0.25f}));
    EXPECT_EQ(ParseAssignment("a=1").second, 1.0f);
    EXPECT_EQ(ParseAssignment("a=.5").second, 0.5f);
    for (const char* bad : {"voice1_vcf_res", "=0.5", "a=", "a=x", "a=0.5x", "a=1.5", "a=-0.1"})
        EXPECT_THROW(ParseAssignment(bad), PresetError) << bad;
}

// Names themselves are checked against the real engine by the end-to-end renders.
TEST(ShippedPresets, SetTheValuesOfEveryVoice) {
    const std::filesystem::path folder = VantorTest::SourcePath("data/presets");
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() != ".json") continue;
        SCOPED_TRACE(entry.path().string());
        ++count;
        const Preset preset = ReadPreset(entry.path().string());
        std::set<std::string> seen;
        for (const auto& [name, value] : preset.values) seen.insert(name);
        // Voice values are not shared between voices even in preset mode 0.
        for (int v = 1; v <= 12; ++v)
            for (const char* p : {"isenable", "volume", "pan", "detune", "transpose", "zone"})
                EXPECT_TRUE(seen.count("voice" + std::to_string(v) + "_" + p)) << v << p;
    }
    EXPECT_GE(count, 1);
    EXPECT_TRUE(std::filesystem::exists(folder / "init.json"));
}

// Stepped selectors become integers by value * count truncated; a value just
// below a step boundary would pick the step beneath the intended one.
TEST(ShippedPresets, SelectorValuesSitInsideTheirSteps) {
    auto count = [](const std::string& name) -> int {
        auto ends = [&](const char* suffix) {
            const std::string s = suffix;
            return name.size() >= s.size() &&
                   name.compare(name.size() - s.size(), s.size(), s) == 0;
        };
        if (ends("_playmode")) return 6;
        if (ends("_zone") && name.rfind("voice", 0) == 0) return 23;
        if (ends("_src") && name.find("matrix") != std::string::npos) return 28;
        if (ends("_dest")) return 48;
        if (ends("_selector") && name.rfind("effect", 0) == 0) return 7;
        if (ends("vcf_type")) return 15;
        return 0;
    };
    for (const auto& entry :
         std::filesystem::directory_iterator(VantorTest::SourcePath("data/presets"))) {
        if (entry.path().extension() != ".json") continue;
        for (const auto& [name, value] : ReadPreset(entry.path().string()).values) {
            const int steps = count(name);
            if (steps == 0 || value == 0.0f) continue;
            const float scaled = value * float(steps);
            const float fraction = scaled - std::floor(scaled);
            EXPECT_TRUE(fraction > 0.05f && fraction < 0.95f)
                << entry.path().filename() << " " << name << " = " << value;
        }
    }
}
