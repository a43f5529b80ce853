#include "basictools/logger/log.h"
#include "processor/modules/paraminfoloader.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;
using Norvell::CLog;
using Norvell::Processor::ParamInfoLoader;
using Norvell::Processor::VariableSet;

namespace {

struct LogLine {
    std::string category;
    std::string level;
    std::string text; // without the final "\n"
};

std::string Trim(const std::string& s) {
    return s.substr(0, s.find_last_not_of(' ') + 1);
}

// "(" + source + "::Line " + number + ")", as a CException appends it.
bool IsLocation(const std::string& s) {
    const size_t at = s.rfind("::Line ");
    if (s.size() < 3 || s.front() != '(' || s.back() != ')' || at == std::string::npos)
        return false;
    const std::string line = s.substr(at + 7, s.size() - at - 8);
    return !line.empty() && line.find_first_not_of("-0123456789") == std::string::npos;
}

std::string Name(const Norvell::Processor::ParamInfo& info) {
    return {info.name, strnlen(info.name, sizeof info.name)};
}

// Writes descriptions into a private folder, loads them with a fresh loader
// and keeps every log line written meanwhile.
class LoaderTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir = fs::temp_directory_path() / ("vantor_loader_" + std::to_string(getpid()));
        fs::create_directories(dir);
        path = (dir / "d.xml").string();
        CLog::DestroyInstance();
        CLog* log = CLog::GetInstance();
        log->SetThreshold("engine_description", Norvell::LOG_DEBUG);
        log->SetThreshold("timing", Norvell::LOG_NOTICE);
        log->SetLineSink([this](const std::string& line) {
            // "[LOG] ms | thread | category | level | text\n"
            std::string fields[4];
            size_t pos = 0;
            for (std::string& field : fields) {
                const size_t bar = line.find(" | ", pos);
                field = line.substr(pos, bar - pos);
                pos = bar + 3;
            }
            lines.push_back(
                {Trim(fields[2]), Trim(fields[3]), line.substr(pos, line.size() - pos - 1)});
        });
    }
    void TearDown() override {
        CLog::DestroyInstance();
        fs::remove_all(dir);
    }
    bool Load(const std::string& xml) {
        std::ofstream(path, std::ios::binary) << xml;
        loader = ParamInfoLoader();
        lines.clear();
        return loader.LoadEngineDescription(path);
    }
    std::vector<LogLine> Lines(const std::string& level) const {
        std::vector<LogLine> out;
        for (const LogLine& line : lines)
            if (line.level == level) out.push_back(line);
        return out;
    }
    static std::string Doc(const std::string& body) {
        return "<rootnode version=\"1.0.0\">" + body + "</rootnode>";
    }

    fs::path dir;
    std::string path;
    ParamInfoLoader loader;
    std::vector<LogLine> lines;
};

struct FailureRow {
    std::string xml;
    std::string message;
    bool located; // CException texts end in "(file::Line n)"
    size_t keptParams;
};

TEST_F(LoaderTest, EveryFailureLogsOneErrorLineAndKeepsWhatWasRead) {
    const std::string params = "<params><param name=\"a\"/>";
    const std::vector<FailureRow> rows = {
        {"", "Node (rootnode) required not defined ", true, 0},
        {"<other version=\"1.0.0\"><params/></other>", "Node (rootnode) required not defined ",
         true, 0},
        {"<rootnode><params/></rootnode>", "Attribute (version) required not defined", true, 0},
        {"<rootnode version=\"1\"><params/></rootnode>", "Version without . : 1", true, 0},
        {"<rootnode version=\"1.0\"><params/></rootnode>", "Version without 2 . : 1.0", true, 0},
        {"<rootnode version=\"1.x.0\"><params/></rootnode>", "invalid stoi argument", false, 0},
        {"<rootnode version=\"1.2.2147483648\"><params/></rootnode>", "stoi argument out of range",
         false, 0},
        {Doc("<constants><c name=\"A\" value=\"1\"/><c value=\"2\"/></constants><params/>"),
         "Attribute (name) required not defined", true, 0},
        {Doc("<constants><c name=\"A\"/></constants><params/>"),
         "Attribute (value) required not defined", true, 0},
        {Doc("<constants>text<c name=\"A\" value=\"1\"/></constants><params/>"),
         "Attribute (name) required not defined", true, 0},
        {Doc("<constants/>"), "Node (params) required not defined ", true, 0},
        {"<rootnode version=\"1.0.0\"><params>", "unexpected end of data", false, 0},
        {"junk", "expected <", false, 0},
        {Doc(params + "<block name=\"b\" nbblock=\"0\"><block name=\"c\"/></block></params>"),
         "Attribute (nbblock) required not defined", true, 0},
        {Doc(params + "<block nbblock=\"1\"/></params>"), "Attribute (name) required not defined",
         true, 1},
        {Doc(params + "<block name=\"b\" paramid=\"3\" nbblock=\"1\"/></params>"),
         "attribute 'paramid' is no longer supported, please remove it. (block b)", true, 1},
        {Doc(params + "<param/></params>"), "Attribute (name) required not defined", true, 1},
        {Doc(params + "<param name=\"p\" id=\"1\"/></params>"),
         "attribute 'id' is no longer supported, please remove it. (param p)", true, 1},
        {Doc(params + "<group/></params>"), "Node not enabled group", true, 1},
        {Doc(params + "text</params>"), "Node not enabled ", true, 1},
    };
    for (const FailureRow& row : rows) {
        SCOPED_TRACE(row.xml);
        EXPECT_FALSE(Load(row.xml));
        const auto errors = Lines("error");
        ASSERT_EQ(errors.size(), 1u);
        EXPECT_EQ(errors[0].category, "engine_description");
        const std::string head = "[XML] Error on parse file " + path + " : " + row.message;
        ASSERT_EQ(errors[0].text.rfind(head, 0), 0u) << errors[0].text;
        const std::string tail = errors[0].text.substr(head.size());
        EXPECT_TRUE(row.located ? IsLocation(tail) : tail.empty()) << tail;
        EXPECT_EQ(loader.ParamInfos().size(), row.keptParams);
        EXPECT_EQ(loader.ParamSources().size(), row.keptParams);
    }
    // Constants read before the failure stay.
    Load(rows[7].xml);
    EXPECT_EQ(loader.Constants(), (VariableSet{{"A", "1"}}));
}

TEST_F(LoaderTest, MissingFileAndTimerLines) {
    EXPECT_FALSE(loader.LoadEngineDescription((dir / "absent.xml").string()));
    ASSERT_EQ(Lines("notice").size(), 2u);
    EXPECT_EQ(Lines("notice")[0].text, "[XML] File not found, unlock and exit.");
    const std::string timer = Lines("notice")[1].text;
    EXPECT_TRUE(timer.starts_with("Read Audio Engine XML : ") && timer.ends_with(" ms")) << timer;
    EXPECT_TRUE(Lines("error").empty());

    // Without a path the name comes from the library (here the test program).
    lines.clear();
    EXPECT_FALSE(loader.LoadEngineDescription(""));
    bool searched = false;
    for (const LogLine& line : Lines("warning"))
        searched |=
            line.text.find("\\processor_modules_paraminfoloader_test.xml\n") != std::string::npos;
    EXPECT_TRUE(searched);

    EXPECT_TRUE(Load("\xEF\xBB\xBF<?xml version=\"1.0\"?><!-- c -->"
                     "<rootnode version=\"01.2.3 beta\"><params/></rootnode>"));
    EXPECT_TRUE(loader.ParamInfos().empty());
    EXPECT_EQ(Lines("notice")[0].text, "Parsing processor contents file " + path);
}

TEST_F(LoaderTest, BlocksExpandIntoNamesIndicesAndBindings) {
    ASSERT_TRUE(
        Load(Doc("<constants><c name=\"IDX\" value=\"c\"/><c name=\"NB\" value=\"5\"/>"
                 "<c name=\"NB\" value=\"6\"/></constants><params>"
                 "<param name=\"top\" nb_values=\"NB\" module=\"m-IDX\" module_param=\"p\"/>"
                 "<block name=\"one\" nbblock=\"1\"><param name=\"a\"/></block>"
                 "<block name=\"three\" nbblock=\"3\"><param name=\"b\" datasize=\"8\"/></block>"
                 "<block name=\"none\" nbblock=\"0\"><param name=\"x\"/></block>"
                 "<block name=\"neg\" nbblock=\"-2\"><param name=\"x\"/></block>"
                 "<block name=\"voice\" nbblock=\"12\"><block name=\"osc\" nbblock=\"2\">"
                 "<param name=\"freq\" module=\"vNBm-IDX\" "
                 "module_param=\"t-TOPLEVEL_BLOCK-LOWLEVEL_BLOCK\"/>"
                 "</block></block>"
                 "<block name=\"e\" nbblock=\"1\"><param name=\"\" module=\"m-0\" "
                 "module_param=\"q\"/></block>"
                 "<param name=\"half\" module=\"m-0\"/>"
                 "</params>")));
    const auto& infos = loader.ParamInfos();
    const auto& sources = loader.ParamSources();
    ASSERT_EQ(infos.size(), 31u);
    EXPECT_EQ(infos.capacity(), 31u);

    EXPECT_EQ(Name(infos[0]), "top");
    EXPECT_EQ(infos[0].nbValues, 5);
    EXPECT_EQ(infos[0].dataSize, 4);
    EXPECT_EQ(infos[0].aux1, 1.0f);
    EXPECT_EQ(infos[0].aux3, 1u);
    EXPECT_EQ(sources[0].instance, "m-c"); // no index outside blocks: the constant stays
    EXPECT_EQ(Name(infos[1]), "one_a");
    EXPECT_EQ(Name(infos[3]), "three2_b");
    EXPECT_EQ(infos[3].dataSize, 8);
    EXPECT_EQ(infos[3].nbValues, 0);
    // Fourth voice, second oscillator: index 3 * 2 + 1.
    EXPECT_EQ(Name(infos[5 + 7]), "voice4_osc2_freq");
    EXPECT_EQ(sources[5 + 7].instance, "v5m-7");
    EXPECT_EQ(sources[5 + 7].param, "t-3-1");
    EXPECT_EQ(Name(infos[29]), "e");
    EXPECT_EQ(sources[29].instance, "m-0");
    EXPECT_EQ(Name(infos[30]), "half");
    EXPECT_TRUE(sources[30].instance.empty() && sources[30].param.empty());

    std::vector<std::string> unbound;
    for (const LogLine& line : Lines("warning")) unbound.push_back(line.text);
    EXPECT_EQ(unbound, (std::vector<std::string>{
                           "no assignment for param one_a", "no assignment for param three1_b",
                           "no assignment for param three2_b", "no assignment for param three3_b",
                           "no assignment for param half"}));
}

TEST_F(LoaderTest, LinesAreJoinedWithoutTerminators) {
    const std::string lf = "<rootnode version=\"1.0.0\">\n<params>\n"
                           "  <param name=\"a\"\nmodule=\"m-0\" module_param=\"p\"/>\n"
                           "  <block name=\"b\" nbblock=\"2\">\n<param name=\"c\"/>\n</block>\n"
                           "</params>\n</rootnode>\n";
    ASSERT_TRUE(Load(lf));
    const std::vector<Norvell::Processor::ParamInfo> lfInfos = loader.ParamInfos();
    const std::vector<Norvell::Processor::ParamSource> lfSources = loader.ParamSources();
    ASSERT_EQ(lfInfos.size(), 3u);
    EXPECT_EQ(lfSources[0].instance, "m-0");

    std::string crlf;
    for (char c : lf) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
    ASSERT_TRUE(Load(crlf));
    ASSERT_EQ(loader.ParamInfos().size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(std::memcmp(&loader.ParamInfos()[i], &lfInfos[i], sizeof lfInfos[i]), 0);
        EXPECT_EQ(loader.ParamSources()[i].param, lfSources[i].param);
    }

    // An element name that ends a line runs into the next line, whatever the line end.
    for (const char* end : {"\n", "\r\n"}) {
        EXPECT_FALSE(Load(Doc(std::string("<params><param") + end + "name=\"a\"/></params>")));
        ASSERT_EQ(Lines("error").size(), 1u);
        EXPECT_NE(Lines("error")[0].text.find(" : Node not enabled paramname=\"a\"("),
                  std::string::npos);
    }
}

TEST_F(LoaderTest, LongNamesAreCutTo256Bytes) {
    const std::string n256(256, 'n');
    const std::string n300(300, 'm');
    ASSERT_TRUE(Load(Doc("<params><param name=\"" + n256 +
                         "\"/><block name=\"b\" nbblock=\"1\">"
                         "<param name=\"" +
                         n300 + "\"/></block></params>")));
    const auto& infos = loader.ParamInfos();
    EXPECT_EQ(std::string(infos[0].name, 256), n256); // no terminator left
    EXPECT_EQ(std::string(infos[1].name, 256), ("b_" + n300).substr(0, 256));
}

TEST(ResolveConstantsTest, SubstitutionRules) {
    const auto resolve = ParamInfoLoader::ResolveConstants;
    const VariableSet chain = {{"A", "B"}, {"B", "x"}};
    EXPECT_EQ(resolve("A", chain), "B");   // a key is replaced once, nothing more
    EXPECT_EQ(resolve("zA", chain), "zx"); // later keys see what earlier ones produced
    EXPECT_EQ(resolve("zB", VariableSet{{"B", "A"}, {"A", "y"}}), "zA");   // but not the reverse
    EXPECT_EQ(resolve("QB", VariableSet{{"AB", "ok"}, {"Q", "A"}}), "ok"); // result is a key
    EXPECT_EQ(resolve("A-A", VariableSet{{"A", "AA"}}), "AA-AA"); // inserted text not rescanned
    EXPECT_EQ(resolve("aKb", VariableSet{{"", "z"}, {"K", "v"}}), "avb"); // empty name skipped
}

} // namespace
