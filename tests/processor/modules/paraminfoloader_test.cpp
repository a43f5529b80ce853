#include "../../basictools/log_capture.h"
#include "processor/modules/paraminfoloader.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <regex>
#include <unistd.h>

using Norvell::Processor::ParamInfoLoader;
using Norvell::Processor::VariableSet;
using Texts = std::vector<std::string>;

namespace {

const char* const kCategory = "engine_description";

class LoaderTest : public ::testing::Test {
protected:
    void TearDown() override { unlink(path.c_str()); }
    bool Load(const std::string& xml) {
        std::ofstream(path, std::ios::binary) << xml;
        loader = ParamInfoLoader();
        log.lines.clear();
        return loader.LoadEngineDescription(path);
    }
    Texts Params(std::initializer_list<size_t> ids) {
        Texts out;
        for (size_t id : ids) {
            const char* name = loader.ParamInfos().at(id).name;
            const auto& [instance, param] = loader.ParamSources().at(id);
            out.push_back(std::string(name, strnlen(name, 256)) + " " + instance + " " + param);
        }
        return out;
    }
    std::string Doc(std::string b) { return "<rootnode version='1.0.0'>" + b + "</rootnode>"; }
    std::string Ver(std::string v) { return "<rootnode version='" + v + "'><params/></rootnode>"; }
    std::string One(std::string b) { return Doc("<params><param name='a'/>" + b + "</params>"); }
    std::string Con(std::string b) { return Doc("<constants>" + b + "</constants><params/>"); }
    const std::string path = ::testing::TempDir() + "vantor_" + std::to_string(getpid()) + ".xml";
    LogCapture log{{kCategory, Norvell::LOG_DEBUG}};
    ParamInfoLoader loader;
};

TEST_F(LoaderTest, MissingFileAndEveryFailureLogOneLineAndKeepWhatWasRead) {
    const std::string req = " required not defined", noName = "Attribute (name)" + req;
    const std::string gone = " is no longer supported, please remove it. ";
    const struct {
        std::string xml, message;
        size_t located, kept; // CException texts end in "(file::Line n)"
    } rows[] = {
        {"", "Node (rootnode)" + req + " ", 1, 0},
        {"<other version='1.0.0'><params/></other>", "Node (rootnode)" + req + " ", 1, 0},
        {"<rootnode><params/></rootnode>", "Attribute (version)" + req, 1, 0},
        {Ver("1"), "Version without . : 1", 1, 0},
        {Ver("1.0"), "Version without 2 . : 1.0", 1, 0},
        {Ver("1.x.0"), "invalid stoi argument", 0, 0},
        {Ver("1.2.2147483648"), "stoi argument out of range", 0, 0},
        {Con("<c name='A' value='1'/><c value='2'/>"), noName, 1, 0},
        {Con("<c name='A'/>"), "Attribute (value)" + req, 1, 0},
        {Con("text<c name='A' value='1'/>"), noName, 1, 0},
        {Doc("<constants/>"), "Node (params)" + req + " ", 1, 0},
        {"<rootnode version='1.0.0'><params>", "unexpected end of data", 0, 0},
        {"junk", "expected <", 0, 0},
        {One("<block name='b' nbblock='0'><block name='c'/></block>"), "Attribute (nbblock)" + req,
         1, 0},
        {One("<block nbblock='1'/>"), noName, 1, 1},
        {One("<block name='b' paramid='3' nbblock='1'/>"),
         "attribute 'paramid'" + gone + "(block b)", 1, 1},
        {One("<param/>"), noName, 1, 1},
        {One("<param name='p' id='1'/>"), "attribute 'id'" + gone + "(param p)", 1, 1},
        {One("<group/>"), "Node not enabled group", 1, 1},
        {One("text"), "Node not enabled ", 1, 1},
        {Doc("<params><param\nname='a'/></params>"), "Node not enabled paramname='a'", 1, 0},
        {Doc("<params><param\r\nname='a'/></params>"), "Node not enabled paramname='a'", 1, 0},
        // Sizes that would overflow the value store, and walks too long to finish.
        {One("<param name='p' datasize='9223372036854775807'/>"),
         "datasize 9223372036854775807 out of range (param p)", 1, 1},
        {One("<param name='p' datasize='-4'/>"), "datasize -4 out of range (param p)", 1, 1},
        {One("<block name='b' nbblock='4294967296'/>"), "more than 1048576 parameters", 1, 0},
        {One("<block name='b' nbblock='1024'><block name='c' nbblock='1025'><param name='x'/>"
             "</block></block>"),
         "more than 1048576 parameters", 1, 0},
    };
    const std::regex location(R"(\(.+::Line -?\d+\))");
    EXPECT_FALSE(loader.LoadEngineDescription(path + ".absent"));
    EXPECT_EQ(log.Texts(kCategory), Texts{"[XML] File not found, unlock and exit."});
    for (const auto& row : rows) {
        SCOPED_TRACE(row.xml);
        EXPECT_FALSE(Load(row.xml));
        const Texts errors = log.Texts(kCategory, "error");
        ASSERT_EQ(errors.size(), 1u);
        ASSERT_EQ(log.Texts("", "error"), errors);
        const std::string head = "[XML] Error on parse file " + path + " : " + row.message;
        ASSERT_TRUE(errors[0].starts_with(head)) << errors[0];
        const std::string tail = errors[0].substr(head.size());
        EXPECT_TRUE(row.located ? std::regex_match(tail, location) : tail.empty()) << tail;
        EXPECT_EQ(loader.ParamInfos().size(), row.kept);
        EXPECT_EQ(loader.ParamSources().size(), row.kept);
    }
    Load(rows[7].xml); // constants read before the failure stay
    EXPECT_EQ(loader.Constants(), (VariableSet{{"A", "1"}}));
}

TEST_F(LoaderTest, BlocksExpandIntoNamesIndicesAndBindings) {
    ASSERT_TRUE(Load(
        "\xEF\xBB\xBF<?xml version='1.0'?><!-- c --><rootnode version='01.2.3 beta'><constants>"
        "<c name='IDX' value='c'/><c name='NB' value='5'/><c name='NB' value='6'/></constants>"
        "<params><param name='top' nb_values='NB' module='m-IDX' module_param='p'/>"
        "<block name='one' nbblock='1'><param name='a'/></block>"
        "<block name='three' nbblock='3'><param name='b' datasize='8'/></block>"
        "<block name='none' nbblock='0'><param name='x'/></block>"
        "<block name='neg' nbblock='-2'><param name='x'/></block>"
        "<block name='voice' nbblock='12'><block name='osc' nbblock='2'><param name='freq' "
        "module='vNBm-IDX' module_param='t-TOPLEVEL_BLOCK-LOWLEVEL_BLOCK'/></block></block>"
        "<block name='e' nbblock='1'><param name='' module='m-0' module_param='q'/></block>"
        "<param name='half' module='m-0'/></params></rootnode>"));
    EXPECT_EQ(log.Texts(kCategory, "notice"), Texts{"Parsing processor contents file " + path});
    const auto& infos = loader.ParamInfos();
    ASSERT_EQ(infos.size(), 31u);
    EXPECT_EQ(infos.capacity(), 31u);
    // No index outside blocks: IDX stays a constant. Fourth voice, second oscillator: 3 * 2 + 1.
    EXPECT_EQ(Params({0, 1, 3, 5 + 7, 29, 30}),
              (Texts{"top m-c p", "one_a  ", "three2_b  ", "voice4_osc2_freq v5m-7 t-3-1",
                     "e m-0 q", "half  "}));
    EXPECT_EQ(infos[0].nbValues, 5); // the first constant wins
    EXPECT_EQ(infos[3].nbValues, 0);
    EXPECT_EQ(infos[0].dataSize, 4);
    EXPECT_EQ(infos[0].aux1, 1.0f);
    EXPECT_EQ(infos[0].aux3, 1u);
    EXPECT_EQ(infos[3].dataSize, 8);
    const std::string no = "no assignment for param ";
    EXPECT_EQ(
        log.Texts(kCategory, "warning"),
        (Texts{no + "one_a", no + "three1_b", no + "three2_b", no + "three3_b", no + "half"}));
}

TEST_F(LoaderTest, LinesAreJoinedWithoutTerminators) {
    const std::string lf = "<rootnode version=\"1.0.0\">\n<params>\n"
                           "  <param name=\"a\"\nmodule=\"m-0\" module_param=\"p\"/>\n"
                           "  <block name=\"b\" nbblock=\"2\">\n<param name=\"c\"/>\n</block>\n"
                           "</params>\n</rootnode>\n";
    ASSERT_TRUE(Load(lf));
    const auto lfInfos = loader.ParamInfos();
    ASSERT_EQ(Params({0, 1, 2}), (Texts{"a m-0 p", "b1_c  ", "b2_c  "}));
    ASSERT_TRUE(Load(std::regex_replace(lf, std::regex("\n"), "\r\n")));
    ASSERT_EQ(Params({0, 1, 2}), (Texts{"a m-0 p", "b1_c  ", "b2_c  "}));
    EXPECT_EQ(std::memcmp(loader.ParamInfos().data(), lfInfos.data(), 3 * sizeof lfInfos[0]), 0);
}

TEST_F(LoaderTest, LongNamesAreCutTo256Bytes) {
    const std::string n256(256, 'n'), n300(300, 'm');
    ASSERT_TRUE(Load(Doc("<params><param name='" + n256 + "'/><block name='b' nbblock='1'>" +
                         "<param name='" + n300 + "'/></block></params>")));
    EXPECT_EQ(std::string(loader.ParamInfos()[0].name, 256), n256); // no terminator left
    EXPECT_EQ(std::string(loader.ParamInfos()[1].name, 256), ("b_" + n300).substr(0, 256));
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
