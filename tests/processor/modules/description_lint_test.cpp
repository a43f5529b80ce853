#include "processor/modules/paraminfoloader.h"
#include "processor/moduletypes.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>

namespace {

TEST(DescriptionLint, EveryParameterIsBoundOnceAndValidlyAndBlocksStartInPlace) {
    Norvell::Processor::ParamInfoLoader loader;
    ASSERT_TRUE(loader.LoadEngineDescription(VantorTest::EngineFile("vantorengine.xml")));
    const auto& infos = loader.ParamInfos();
    ASSERT_EQ(infos.size(), 4806u);
    std::set<std::string> names, bindings;
    std::vector<std::string> rows; // "id name instance param"
    for (size_t id = 0; id < infos.size(); ++id) {
        const auto& [instance, param] = loader.ParamSources()[id];
        const std::string name(infos[id].name, strnlen(infos[id].name, sizeof infos[id].name));
        rows.push_back(std::to_string(id) + " " + name + " " + instance + " " + param);
        SCOPED_TRACE(rows.back());
        std::string host = // the name ends in the parameter's host form
            param.substr(0, instance.starts_with("mod_matrix") ? param.rfind('_') : -1);
        for (char& c : host)
            if (c == ' ' || c == '/') c = '_';
        EXPECT_TRUE(names.insert(name).second) << name;
        EXPECT_TRUE(name == host || name.ends_with("_" + host)) << name;
        EXPECT_TRUE(bindings.insert(instance + " " + param).second) << instance << " " << param;
        EXPECT_EQ(infos[id].dataSize, 4) << name;
        const size_t dash = instance.rfind('-');
        ASSERT_NE(dash, std::string::npos);
        const auto* type = Norvell::Vantor::FindModuleType(instance.substr(0, dash));
        ASSERT_NE(type, nullptr);
        const int index = std::stoi(instance.substr(dash + 1));
        EXPECT_GE(index, 0);
        EXPECT_LT(index, type->instances);
        EXPECT_GE(Norvell::Vantor::FindModuleParam(*type, param), 0);
    }
    // Block starts (16 master, 12 voices of 366, 6 zones of 5, 128 notes of 2, 8 vib) and samples.
    for (const std::string row :
         {"0 master_volume vantor_master-0 master_volume",
          "15 sustain-hold vantor_master-0 sustain-hold",
          "16 voice1_isenable vantor_voice-0 isenable", "24 voice1_osc1_freq vantor_osc-0 freq",
          "775 voice3_osc2_pulse-width vantor_osc-5 pulse-width",
          "4042 voice12_isenable vantor_voice-11 isenable",
          "4159 voice12_env5_gated_lfo_trig vantor_env-59 gated_lfo_trig",
          "4407 voice12_matrix40_quantize mod_matrix-11 quantize_39",
          "4408 zone1_playmode vantor_zone-0 playmode",
          "4437 zone6_channel_selector MIDIRange-5 channel_selector",
          "4438 note1_note vantor_note-0 note", "4693 note128_color vantor_note-127 color",
          "4694 vib_speed vantor_vib-0 speed", "4701 vib_lag vantor_vib-0 lag",
          "4702 fx1_delay_time1 delay-0 time1",
          "4724 fx1_phaser_midi_sync analog-dual-phaser-0 midi sync",
          "4728 fx1_dubdelay_delay_time mda-dubdelay-0 delay time",
          "4805 fx2_reverb_dry_wet dattoro-reverb-1 dry/wet"})
        EXPECT_EQ(rows.at(std::stoul(row)), row);
}

// The phaser reads type, sync and mode as switches and stereo as an amount
// (the second LFO's offset of up to half a cycle), so only the switches may
// declare two steps to the host.
TEST(DescriptionLint, PhaserStepCountsMatchHowTheValuesAreRead) {
    Norvell::Processor::ParamInfoLoader loader;
    ASSERT_TRUE(loader.LoadEngineDescription(VantorTest::EngineFile("vantorengine.xml")));
    const std::pair<const char*, int> expected[] = {
        {"type1", 2},  {"type2", 2}, {"midi_sync", 2}, {"dual_mode", 2},
        {"stereo", 0}, {"rate1", 0}, {"depth1", 0},    {"dry_wet", 0}};
    int found = 0;
    for (const auto& info : loader.ParamInfos()) {
        const std::string name(info.name, strnlen(info.name, sizeof info.name));
        for (const auto& [param, steps] : expected) {
            for (const char* slot : {"fx1_phaser_", "fx2_phaser_"}) {
                if (name != std::string(slot) + param) continue;
                EXPECT_EQ(info.nbValues, steps) << name;
                ++found;
            }
        }
    }
    EXPECT_EQ(found, 16);
}

} // namespace
