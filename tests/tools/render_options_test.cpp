// The renderer's command-line values: channel lists, where each input goes, the
// program table and the preset list.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <unistd.h>

#include "render/arguments.h"
#include "render/presetinfo.h"
#include "render/programtable.h"

using namespace Norvell::Render;
namespace fs = std::filesystem;

TEST(Options, ChannelLists) {
    EXPECT_EQ(ParseChannels("1"), 0x0001);
    EXPECT_EQ(ParseChannels("16"), 0x8000);
    EXPECT_EQ(ParseChannels("1-9,11"), 0x05FF);
    EXPECT_EQ(ParseChannels("3,3,1-2"), 0x0007);
    for (const char* bad : {"", "0", "17", "1,", "a", "5-3", "1-", "2.5", "-1"})
        EXPECT_THROW(ParseChannels(bad), UsageError) << bad;
}

TEST(Options, EachInputGetsItsOwnOutput) {
    const fs::path dir = fs::temp_directory_path() / ("vantor_opts_" + std::to_string(getpid()));
    fs::create_directories(dir);
    const auto paths = [](const std::vector<OutputTarget>& targets) {
        std::vector<std::string> result;
        for (const auto& t : targets) result.push_back(t.path + ":" + FileTypeName(t.format.type));
        return result;
    };
    using Paths = std::vector<std::string>;
    const auto wav = SampleFormat::Pcm24;
    EXPECT_EQ(paths(PlanOutputs({"a/x.mid", "y.midi"}, "", {}, wav)),
              (Paths{"a/x.wav:wav", "y.wav:wav"}));
    EXPECT_EQ(paths(PlanOutputs({"x.mid"}, "", FileType::Flac, wav)), (Paths{"x.flac:flac"}));
    EXPECT_EQ(paths(PlanOutputs({"x.mid"}, "take.OGG", {}, wav)), (Paths{"take.OGG:ogg"}));
    EXPECT_EQ(paths(PlanOutputs({"x.mid"}, "take.ogg", FileType::Wav, wav)),
              (Paths{"take.ogg:wav"})); // --type wins
    EXPECT_EQ(paths(PlanOutputs({"x.mid"}, "take", {}, wav)), (Paths{"take:wav"}));
    EXPECT_EQ(paths(PlanOutputs({"x.mid"}, "-", FileType::Raw, wav)), (Paths{"-:raw"}));
    EXPECT_EQ(paths(PlanOutputs({"a/x.mid", "y.mid"}, dir.string(), FileType::Opus, wav)),
              (Paths{(dir / "x.opus").string() + ":opus", (dir / "y.opus").string() + ":opus"}));
    EXPECT_EQ(paths(PlanOutputs({"x.mid", "-"}, "new/", {}, wav)),
              (Paths{"new/x.wav:wav", "new/stdin.wav:wav"}));
    EXPECT_EQ(paths(PlanOutputs({"x.mid", "y.mid"}, "r/{name}-pad.flac", {}, wav)),
              (Paths{"r/x-pad.flac:flac", "r/y-pad.flac:flac"}));
    EXPECT_EQ(paths(PlanOutputs({"x.mid"}, "r/{name}", FileType::Aiff, wav)),
              (Paths{"r/x.aiff:aiff"}));

    const std::pair<std::vector<std::string>, std::string> refused[] = {
        {{}, ""},                       // nothing to render
        {{"x.mid", "y.mid"}, "-"},      // two files on one stream
        {{"x.mid", "y.mid"}, "o.wav"},  // two files under one name
        {{"a/x.mid", "b/x.mid"}, "r/"}, // the same name twice
        {{"-"}, ""},                    // no name to derive
        {{"-", "-"}, "r/"},             // standard input read twice
        {{"x.mid"}, "x.mp3"},           // a type that cannot be told
    };
    for (const auto& [inputs, output] : refused)
        EXPECT_THROW(PlanOutputs(inputs, output, {}, wav), UsageError) << output;
    fs::remove_all(dir);
}

TEST(Options, ProgramTables) {
    const auto table = ParseProgramTable("# GM families\n"
                                         "1-8 fx_reverb_piano   # pianos\n"
                                         "\n"
                                         "  81 lead\n"
                                         "8 my/own.json\n",
                                         "gm.txt");
    ASSERT_EQ(table.size(), 9u);
    EXPECT_EQ(table.at(0), "fx_reverb_piano");
    EXPECT_EQ(table.at(6), "fx_reverb_piano");
    EXPECT_EQ(table.at(7), "my/own.json"); // the later line wins
    EXPECT_EQ(table.at(80), "lead");
    const std::pair<const char*, const char*> errors[] = {
        {"0 pad", "gm.txt:1: '0' is not a program"}, {"pad\n", "gm.txt:1: expected"},
        {"1 pad\n129 pad", "gm.txt:2: '129'"},       {"9-8 pad", "'9-8' is not a program"},
        {"1 pad lead", "expected 'PROGRAM PRESET'"},
    };
    for (const auto& [text, message] : errors) {
        try {
            ParseProgramTable(text, "gm.txt");
            ADD_FAILURE() << text;
        } catch (const Failure& e) {
            EXPECT_NE(std::string(e.what()).find(message), std::string::npos) << e.what();
        }
    }
}

TEST(Options, PresetListShowsWhatTheFilesDescribe) {
    const fs::path dir = fs::temp_directory_path() / ("vantor_list_" + std::to_string(getpid()));
    fs::create_directories(dir);
    std::ofstream(dir / "pad.json") << R"({"name": "Warm Pad", "category": "Pads",
        "description": "Slow and wide.", "values": {}})";
    std::ofstream(dir / "bare.json") << R"({"values": {}})";
    std::ofstream(dir / "broken.json") << "{ not json";
    std::ofstream(dir / "notes.txt") << "not a preset";
    const auto presets = ListPresetInfo({dir});
    // Named by file, as --preset takes them; what cannot be read still shows.
    EXPECT_EQ(FormatPresetList(presets), "bare\n"
                                         "broken\n"
                                         "pad     Pads  Slow and wide.\n");
    EXPECT_EQ(FormatPresetList({{"init", "", "One saw."}, {"lead", "", ""}}),
              "init  One saw.\nlead\n");
    fs::remove_all(dir);
}
