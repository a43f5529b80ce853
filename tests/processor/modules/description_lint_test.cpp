// Checks the shipped engine description against the module registry.
#include "basictools/logger/log.h"
#include "processor/modules/paraminfoloader.h"
#include "processor/moduletypes.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <map>
#include <set>

using Norvell::Processor::ParamInfoLoader;
using Norvell::Processor::ParamSource;
using namespace Norvell::Vantor;

namespace {

const std::string kFile = VantorTest::SourcePath("data/resources/vantorengine.xml");

std::string Name(const Norvell::Processor::ParamInfo& info) {
    return {info.name, strnlen(info.name, sizeof info.name)};
}

// Host-facing form of a module parameter name: blanks and "/" become "_".
std::string HostForm(std::string name) {
    for (char& c : name)
        if (c == ' ' || c == '/') c = '_';
    return name;
}

// The name a parameter bound to source must carry, rebuilt from the binding.
std::string ExpectedName(const ParamSource& source) {
    static const std::map<std::string, std::string> voiceBlocks = {
        {"vantor_osc", "osc"}, {"vantor_FmModule", "fm"}, {"vantorvcf", "vcf"},
        {"vantor_vca", "vca"}, {"vantor_env", "env"},     {"vantor_lfo", "lfo"},
        {"ramp", "ramp"},      {"track", "track"},        {"vantor_lag", "lag"}};
    static const std::map<std::string, std::string> fxBlocks = {{"delay", "delay"},
                                                                {"analog-dual-phaser", "phaser"},
                                                                {"mda-dubdelay", "dubdelay"},
                                                                {"mda-flanger", "flanger"},
                                                                {"moog-modular-chorus", "chorus"},
                                                                {"dattoro-reverb", "reverb"}};

    const size_t dash = source.instance.rfind('-');
    const std::string type = source.instance.substr(0, dash);
    const int i = std::stoi(source.instance.substr(dash + 1));
    const std::string n = std::to_string(i + 1);
    std::string param = source.param;
    std::string prefix;
    if (type == "vantor_voice") prefix = "voice" + n + "_";
    if (type == "vantor_zone" || type == "MIDIRange") prefix = "zone" + n + "_";
    if (type == "vantor_note") prefix = "note" + n + "_";
    if (type == "vantor_vib") prefix = "vib_";
    if (fxBlocks.contains(type)) prefix = "fx" + n + "_" + fxBlocks.at(type) + "_";
    if (type == "mod_matrix") {
        const size_t sep = param.rfind('_');
        prefix =
            "voice" + n + "_matrix" + std::to_string(std::stoi(param.substr(sep + 1)) + 1) + "_";
        param.erase(sep);
    }
    if (voiceBlocks.contains(type)) {
        const int perVoice = FindModuleType(type)->perVoice;
        prefix = "voice" + std::to_string(i / perVoice + 1) + "_" + voiceBlocks.at(type) +
                 (perVoice > 1 ? std::to_string(i % perVoice + 1) : "") + "_";
    }
    return prefix + HostForm(param);
}

class DescriptionLint : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        Norvell::CLog::DestroyInstance();
        loader = new ParamInfoLoader();
        loaded = loader->LoadEngineDescription(kFile);
    }
    static void TearDownTestSuite() { delete loader; }
    static inline ParamInfoLoader* loader = nullptr;
    static inline bool loaded = false;
};

TEST_F(DescriptionLint, EveryParameterIsBoundOnceAndNamedAfterItsBinding) {
    ASSERT_TRUE(loaded);
    const auto& infos = loader->ParamInfos();
    const auto& sources = loader->ParamSources();
    ASSERT_EQ(infos.size(), 4806u);

    std::set<std::pair<std::string, std::string>> seen;
    std::map<std::string, std::vector<std::string>> boundParams; // instance -> params in id order
    for (size_t id = 0; id < infos.size(); ++id) {
        const ParamSource& source = sources[id];
        SCOPED_TRACE(std::to_string(id) + " " + Name(infos[id]));
        EXPECT_EQ(infos[id].dataSize, 4);
        const size_t dash = source.instance.rfind('-');
        ASSERT_NE(dash, std::string::npos);
        const ModuleTypeInfo* type = FindModuleType(source.instance.substr(0, dash));
        ASSERT_NE(type, nullptr);
        const int instance = std::stoi(source.instance.substr(dash + 1));
        EXPECT_TRUE(instance >= 0 && instance < type->instances);
        EXPECT_GE(FindModuleParam(*type, source.param), 0);
        EXPECT_TRUE(seen.insert({source.instance, source.param}).second) << "bound twice";
        EXPECT_EQ(Name(infos[id]), ExpectedName(source));
        boundParams[source.instance].push_back(source.param);
    }

    // Every instance is bound completely and in its own parameter order;
    // only the channel zones (6 to 22) stay unbound.
    for (const ModuleTypeInfo& type : ModuleTypes()) {
        std::vector<std::string> named;
        for (const std::string& param : type.params)
            if (!param.empty()) named.push_back(param);
        const bool zoneType = type.type == "vantor_zone" || type.type == "MIDIRange";
        for (int i = 0; i < type.instances; ++i) {
            const auto found = boundParams.find(type.type + "-" + std::to_string(i));
            if (zoneType && i >= 6) {
                EXPECT_EQ(found, boundParams.end()) << type.type << i;
                continue;
            }
            ASSERT_NE(found, boundParams.end()) << type.type << i;
            EXPECT_EQ(found->second, named) << type.type << i;
        }
    }
}

TEST_F(DescriptionLint, BlocksStartWhereTheHostExpectsThem) {
    ASSERT_TRUE(loaded);
    const auto& infos = loader->ParamInfos();
    std::map<std::string, size_t> ids;
    for (size_t id = 0; id < infos.size(); ++id) ids[Name(infos[id])] = id;

    constexpr size_t kVoiceParams =
        8 + 2 * 17 + 2 + 7 + 2 * 1 + 5 * 13 + 5 * 9 + 4 * 5 + 3 * 6 + 5 + 40 * 4;
    static_assert(kVoiceParams == 366);
    EXPECT_EQ(ids.at("master_volume"), 0u);
    EXPECT_EQ(ids.at("sustain-hold"), 15u);
    for (size_t v = 1; v <= 12; ++v)
        EXPECT_EQ(ids.at("voice" + std::to_string(v) + "_isenable"), 16 + (v - 1) * kVoiceParams);
    EXPECT_EQ(ids.at("zone1_playmode"), 16 + 12 * kVoiceParams);
    EXPECT_EQ(ids.at("zone1_playmode"), 4408u);
    EXPECT_EQ(ids.at("note1_note"), 4408 + 6 * 5u);
    EXPECT_EQ(ids.at("vib_speed"), 4438 + 128 * 2u);
    EXPECT_EQ(ids.at("fx1_delay_time1"), 4694 + 8u);
    for (const char* name :
         {"voice1_osc1_freq", "voice3_osc2_pulse-width", "voice12_env5_gated_lfo_trig",
          "voice12_matrix40_quantize", "zone6_channel_selector", "note128_color", "vib_lag",
          "fx2_reverb_dry_wet", "fx1_dubdelay_delay_time", "fx1_phaser_midi_sync"})
        EXPECT_TRUE(ids.contains(name)) << name;
    EXPECT_EQ(ids.at("fx2_reverb_dry_wet"), 4805u);
}

TEST_F(DescriptionLint, FileStaysSafeForTheLineJoiningReader) {
    // Lines are joined without breaks and closing tags are not checked, so
    // every line must hold whole elements and every param must self-close.
    std::ifstream in(kFile);
    std::string line;
    int number = 0;
    while (std::getline(in, line)) {
        ++number;
        const size_t begin = line.find_first_not_of(" \t");
        if (begin == std::string::npos) continue;
        const std::string text = line.substr(begin, line.find_last_not_of(" \t\r") + 1 - begin);
        EXPECT_EQ(text.front(), '<') << "line " << number;
        EXPECT_EQ(text.back(), '>') << "line " << number;
        EXPECT_TRUE(!text.starts_with("<param ") || text.ends_with("/>")) << "line " << number;
    }

    // A constant name inside another name would be substituted into it.
    ASSERT_TRUE(loaded);
    std::vector<std::string> keys = {"IDX", "TOPLEVEL_BLOCK", "LOWLEVEL_BLOCK"};
    for (const auto& [key, value] : loader->Constants()) keys.push_back(key);
    for (const std::string& a : keys)
        for (const std::string& b : keys)
            EXPECT_TRUE(&a == &b || b.find(a) == std::string::npos) << a << " in " << b;
}

} // namespace
