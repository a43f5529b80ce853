#include "basictools/logger/log.h"
#include "basictools/platform.h"
#include "basictools/timing.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace Norvell;

namespace {

int64_t fakeNow = 0;

std::string ReadText(const fs::path& path) {
    return {std::istreambuf_iterator<char>(std::ifstream(path).rdbuf()), {}};
}

class LoggerTest : public ::testing::Test {
protected:
    void SetUp() override { fs::create_directories(dir); }
    void TearDown() override {
        CLog::DestroyInstance();
        CTiming::SetClock(nullptr);
        fs::remove_all(dir);
    }
    // Configures from the conf text; returns what went to stdout.
    std::string Configure(const std::string& conf, const std::string& output = "") {
        std::ofstream(dir / "log.conf", std::ios::binary) << conf;
        ::testing::internal::CaptureStdout();
        CLog::GetInstance()->Configure((dir / "log.conf").string(), output);
        return ::testing::internal::GetCapturedStdout();
    }
    const fs::path dir = fs::temp_directory_path() / ("vantor_log_" + std::to_string(getpid()));
};

TEST_F(LoggerTest, StampedFileGetsFixedWidthLinesUntilTheLoggerIsRecreated) {
    setenv("TZ", "UTC", 1); // the stamp shows local time
    tzset();
    fakeNow = 315'626'635LL * 10'000'000 + 9'999'999; // 1980-01-02 02:03:55.9999999 UTC
    EXPECT_EQ(CLog::CreationStamp(fakeNow), "1980_Jan__2_02-03-55");
    EXPECT_EQ(CLog::CreationStamp(fakeNow + 10LL * 86400 * 10'000'000), "1980_Jan_12_02-03-55");
    CTiming::SetClock([] { return fakeNow; });
    Configure("audio_engine info\n", (dir / "out.log").string()); // named after its creation
    fakeNow += 150 * 10000 + 9999;                                // 150.9999 ms: truncated
    CLog::GetInstance()->Log("audio_engine", LOG_NOTICE, std::ostringstream("hello"));
    CLog::GetInstance()->Log("a_category_longer_than_15", LOG_DEBUG, std::ostringstream("hello"));
    CLog::GetInstance()->Print("raw text\n");
    std::string thread = std::to_string(Platform::ThreadId());
    thread.resize(std::max<size_t>(thread.size(), 5), ' ');
    const std::string file = (dir / "out.log_1980_Jan__2_02-03-55").string();
    const std::string text = ReadText(file);
    EXPECT_EQ(text, "#### Stdout redirected to file " + file + "\n" + "[LOG] 150    | " + thread +
                        " | audio_engine    | notice | hello\n" + "[LOG] 150    | " + thread +
                        " | a_category_longer_than_15 | debug  | hello\n" + "raw text\n");
    CLog::DestroyInstance(); // a re-created logger is unconfigured and writes nowhere
    CLog* fresh = CLog::GetInstance();
    EXPECT_TRUE(fresh->Categories().empty());
    EXPECT_TRUE(fresh->OutputFile().empty());
    EXPECT_FALSE(fresh->IsFileOpen());
    EXPECT_FALSE(fresh->IsEnabled("audio_engine", LOG_NOTICE));
    EXPECT_TRUE(fresh->IsEnabled("audio_engine", LOG_WARNING));
    EXPECT_EQ(fresh->Categories().at("audio_engine"), LOG_WARNING); // registered on first use
    fresh->Log("audio_engine", LOG_ERROR, std::ostringstream("lost"));
    EXPECT_EQ(ReadText(file), text);
}

TEST_F(LoggerTest, ConfLinesSetThresholdsWithEitherLineEndAndMissingConfIsReported) {
    for (const std::string end : {"\n", "\r\n"}) {
        CLog::DestroyInstance();
        std::string conf;
        for (const char* line :
             {"// comment line", "timing error", "DebugAllFlag 1", "audio_engine error",
              "description verbose", "DebugAllFlag 0", "engine verbose", "engine_description info",
              "engine_description error", "one two three", "  // note", "\t ", "OutputFile x/a.log",
              "ExtendedFilename 0"})
            conf += line + end;
        EXPECT_EQ(Configure(conf), "## DebugAllFlag : 1\n## DebugAllFlag : 0\n"
                                   "Log level verbose not existing.\n"
                                   "## WARNING : this line is ignored as not well-formed one two "
                                   "three\nLog level note not existing.\n"
                                   "## OutputFile : x/a.log\n## ExtendedFilename : 0\n");
        // Under DebugAllFlag 1 every level is debug; an unknown level is error; the first
        // line of a category wins; "//" after blanks is no comment.
        const std::map<std::string, int> levels = {
            {"timing", LOG_ERROR}, {"audio_engine", LOG_DEBUG},      {"description", LOG_DEBUG},
            {"engine", LOG_ERROR}, {"engine_description", LOG_INFO}, {"//", LOG_ERROR}};
        EXPECT_EQ(CLog::GetInstance()->Categories(), levels);
        EXPECT_EQ(CLog::GetInstance()->OutputFile(), "x/a.log"); // has a "/": kept as is
    }
    ::testing::internal::CaptureStdout();
    CLog::GetInstance()->Configure("", "");
    CLog::GetInstance()->Configure("/absent/log.conf", "");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "#### Log conf file empty.\nConf file /absent/log.conf not found.\n");
}

} // namespace
