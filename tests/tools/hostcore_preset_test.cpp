// Preset files, --set arguments and parameter name suggestions.
#include <gtest/gtest.h>

#include <algorithm>

#include "hostcore/paramdirectory.h"
#include "hostcore/preset.h"

using namespace Norvell::HostCore;

// Parses JSON as a preset file, then resolves it against PARAMS when given.
static std::string ErrorOf(const char* json, const ParamDirectory* params = nullptr) {
    try {
        const Preset preset = ParsePreset(json, "test.json");
        if (params) ResolvePreset(preset, *params);
    } catch (const PresetError& e) {
        return e.what();
    }
    return "no error";
}

TEST(Preset, RejectsMalformedFilesAndValuesOutsideTheUnitRange) {
    const std::pair<const char*, const char*> cases[] = {
        {"{\n  \"values\": {\n    \"a\": 0.5,\n  }\n}", "test.json: bad JSON"},
        {"{\n  \"values\": {\n    \"a\": 0.5,\n  }\n}", "line 4"},
        {"[1, 2]", "must be a JSON object"},
        {R"({"name": "x"})", "missing \"values\""},
        {R"({"values": [0.5]})", "\"values\" must be an object"},
        {R"({"values": {"a": "0.5"}})", "'a' must be a number"},
        {R"({"values": {"a": true}})", "'a' must be a number"},
        {R"({"value": {}})", "unknown key \"value\""},
        {R"({"name": 3, "values": {}})", "\"name\" must be a string"},
        {R"({"values": {"voice1_pan": 1.5}})", "value 1.5 of 'voice1_pan' is outside 0..1"},
        {R"({"values": {"voice1_isenable": -1}})", "outside 0..1"},
        {R"({"values": {"x": 1e-40, "y": 1.0000001}})", "'y'"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_NE(ErrorOf(text).find(expected), std::string::npos) << ErrorOf(text);
}

TEST(Preset, ValuesKeepFileOrderAndUnknownNamesListTheirClosestMatches) {
    const char* json = R"({"name": "warm", "description": "x", "values": )"
                       R"({"pitch": 0, "master_volume": 0.4, "voice1_vcf_cutof": 1}})";
    const ParamDirectory params(
        {{"voice1_vcf_cutoff"}, {"voice2_vcf_cutoff"}, {"master_volume"}, {"pitchbend"}});
    EXPECT_EQ(ErrorOf(json, &params),
              "test.json: unknown parameter 'pitch' (see --list-params)\n"
              "test.json: unknown parameter 'voice1_vcf_cutof'; closest matches: "
              "voice1_vcf_cutoff, voice2_vcf_cutoff");
    EXPECT_EQ(EditDistance("Master_Volume", "master_volume"), 0u); // case does not count

    Preset p = ParsePreset(json, "warm.json");
    EXPECT_EQ(p.name, "warm");
    EXPECT_EQ(p.values, (std::vector<std::pair<std::string, float>>{
                            {"pitch", 0.0f}, {"master_volume", 0.4f}, {"voice1_vcf_cutof", 1.0f}}));
    EXPECT_EQ(ParsePreset(R"({"values": {}})", "plain.json").name, "plain.json");
    p.values = {p.values[1]};
    const auto resolved = ResolvePreset(p, params);
    ASSERT_EQ(resolved.size(), 1u);
    EXPECT_EQ(resolved[0].id, 2u);
    EXPECT_FLOAT_EQ(resolved[0].value, 0.4f);
}

TEST(Preset, SetArgumentsNeedANameAndAUnitValue) {
    EXPECT_EQ(ParseAssignment("voice1_vcf_res=.25"),
              (std::pair<std::string, float>{"voice1_vcf_res", 0.25f}));
    EXPECT_EQ(ParseAssignment("a=1").second, 1.0f);
    for (const char* bad :
         {"voice1_vcf_res", "=0.5", "a=", "a=x", "a=0.5x", "a=1.5", "a=-0.1", "a=nan"})
        EXPECT_THROW(ParseAssignment(bad), PresetError) << bad;
}

TEST(Preset, ReadsTheDescriptiveFieldsAndRefusesNewerFormats) {
    const Preset p = ParsePreset(R"({"name": "Warm Bass", "category": "Basses", "author": "a",
        "description": "d", "tags": ["mono", "glide"], "version": 1, "values": {}})",
                                 "warm.json");
    EXPECT_EQ(p.category, "Basses");
    EXPECT_EQ(p.author, "a");
    EXPECT_EQ(p.description, "d");
    EXPECT_EQ(p.tags, (std::vector<std::string>{"mono", "glide"}));

    const std::pair<const char*, const char*> cases[] = {
        {R"({"category": 1, "values": {}})", "\"category\" must be a string"},
        {R"({"tags": "mono", "values": {}})", "\"tags\" must be a list"},
        {R"({"tags": [1], "values": {}})", "\"tags\" must be a string"},
        {R"({"version": 2, "values": {}})", "format version 2 is newer"},
        {R"({"version": 0.5, "values": {}})", "\"version\" must be a whole number"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_NE(ErrorOf(text).find(expected), std::string::npos) << ErrorOf(text);
}

TEST(Preset, APresetIsLaidOverItsBaseAndItsLastValueForANameWins) {
    Preset base{"init", "init.json", {{"a", 0.1f}, {"b", 0.2f}, {"c", 0.3f}}};
    Preset own{"x", "x.json", {{"c", 0.9f}, {"d", 0.4f}, {"c", 0.8f}}};
    own.category = "Keys";
    const Preset sound = OverBase(base, own);
    EXPECT_EQ(sound.name, "x");
    EXPECT_EQ(sound.category, "Keys");
    EXPECT_EQ(sound.values, (PresetValues{{"a", 0.1f}, {"b", 0.2f}, {"c", 0.8f}, {"d", 0.4f}}));
}

TEST(Preset, ASavedDiffReadsBackAsExactlyTheSameSound) {
    const PresetValues base{{"a", 0.5f}, {"b", 1.0f / 3.0f}, {"c", 0.0f}};
    // Awkward floats: the text must bring back the same bits, and equal values must drop out.
    const PresetValues current{{"a", 0.5f}, {"b", 0.1f},        {"c", 1e-7f},
                               {"d", 0.0f}, {"e", 0.70710677f}, {"f", 1.0f}};
    const PresetValues diff = DiffOverBase(base, current);
    EXPECT_EQ(diff, (PresetValues{{"b", 0.1f}, {"c", 1e-7f}, {"e", 0.70710677f}, {"f", 1.0f}}));

    Preset saved{"mine \"one\"", "", diff};
    saved.tags = {"user"};
    const Preset back = ParsePreset(FormatPreset(saved), "mine.json");
    EXPECT_EQ(back.name, "mine \"one\"");
    EXPECT_EQ(back.tags, saved.tags);
    EXPECT_EQ(back.values, diff);
    Preset start{"init", "init.json", base};
    PresetValues sound = OverBase(start, back).values;
    std::sort(sound.begin(), sound.end());
    PresetValues expected{{"a", 0.5f}, {"b", 0.1f}, {"c", 1e-7f}, {"e", 0.70710677f}, {"f", 1.0f}};
    EXPECT_EQ(sound, expected); // d stays at the engine's start value, unwritten
    EXPECT_EQ(ParsePreset(FormatPreset({"empty", "", {}}), "e.json").values.size(), 0u);
}
