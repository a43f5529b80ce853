// Preset files, --set arguments and parameter name suggestions.
#include <gtest/gtest.h>

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
