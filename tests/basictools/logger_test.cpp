#include "basictools/logger/log.h"
#include "basictools/platform.h"
#include "basictools/timing.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <vector>

namespace fs = std::filesystem;
using Norvell::CLog;

namespace {

int64_t fakeNow = 0;
int64_t FakeClock() {
    return fakeNow;
}

std::string ReadText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A fresh logger per test, configured from a conf file in a private folder.
class LoggerTest : public ::testing::Test {
protected:
    void SetUp() override {
        CLog::DestroyInstance();
        dir = fs::temp_directory_path() / ("vantor_log_" + std::to_string(getpid()));
        fs::remove_all(dir);
        fs::create_directories(dir);
    }
    void TearDown() override {
        CLog::DestroyInstance();
        Norvell::CTiming::SetClock(nullptr);
        fs::remove_all(dir);
    }
    // Configures from the given conf text; returns what went to stdout.
    std::string Configure(const std::string& conf, const std::string& output = "") {
        const fs::path confPath = dir / "log.conf";
        std::ofstream(confPath, std::ios::binary) << conf;
        ::testing::internal::CaptureStdout();
        CLog::GetInstance()->Configure(confPath.string(), output);
        return ::testing::internal::GetCapturedStdout();
    }
    int Threshold(const std::string& category) {
        const auto& categories = CLog::GetInstance()->Categories();
        const auto found = categories.find(category);
        return found == categories.end() ? -1 : found->second;
    }
    fs::path dir;
};

TEST_F(LoggerTest, LineHasFixedFieldsAndWidths) {
    Norvell::CTiming::SetClock(&FakeClock);
    fakeNow = 5'000'000'000;
    const fs::path file = dir / "out.log";
    Configure("ExtendedFilename 0\naudio_engine info\n", file.string());
    fakeNow += 150 * 10000 + 9999; // 150.9999 ms: truncated to 150

    std::ostringstream message;
    message << "hello";
    CLog::GetInstance()->Log("audio_engine", Norvell::LOG_NOTICE, message);
    CLog::GetInstance()->Log("a_category_longer_than_15", Norvell::LOG_DEBUG, message);
    CLog::GetInstance()->Print("raw text\n");

    std::ostringstream thread;
    thread << std::left << std::setw(5) << Norvell::Platform::ThreadId();
    EXPECT_EQ(ReadText(file),
              "#### Stdout redirected to file " + file.string() + "\n" + "[LOG] 150    | " +
                  thread.str() + " | audio_engine    | notice | hello\n" + "[LOG] 150    | " +
                  thread.str() + " | a_category_longer_than_15 | debug  | hello\n" + "raw text\n");
}

TEST_F(LoggerTest, CreationStampFollowsTheCtimeText) {
    const char* oldTz = std::getenv("TZ");
    const std::string savedTz = oldTz != nullptr ? oldTz : "";
    setenv("TZ", "UTC", 1);
    tzset();
    std::tm day{};
    day.tm_year = 80;
    day.tm_mday = 2;
    day.tm_hour = 2;
    day.tm_min = 3;
    day.tm_sec = 55;
    const int64_t jan2 = static_cast<int64_t>(timegm(&day)) * 10'000'000 + 9'999'999;
    EXPECT_EQ(CLog::CreationStamp(jan2), "1980_Jan__2_02-03-55");
    EXPECT_EQ(CLog::CreationStamp(jan2 + 10LL * 86400 * 10'000'000), "1980_Jan_12_02-03-55");

    // The stamp of the logger's creation is appended to the configured name.
    Norvell::CTiming::SetClock(&FakeClock);
    fakeNow = jan2;
    Configure("audio_engine info\n", (dir / "engine.log").string());
    EXPECT_TRUE(fs::exists(dir / "engine.log_1980_Jan__2_02-03-55"));
    if (oldTz != nullptr)
        setenv("TZ", savedTz.c_str(), 1);
    else
        unsetenv("TZ");
    tzset();
}

TEST_F(LoggerTest, ConfLinesSetThresholdsWithEitherLineEnd) {
    const std::vector<std::string> conf = {"// comment line",
                                           "timing error",
                                           "DebugAllFlag 1",
                                           "audio_engine error",
                                           "description verbose",
                                           "DebugAllFlag 0",
                                           "engine verbose",
                                           "engine_description info",
                                           "engine_description error",
                                           "one two three",
                                           "  // note",
                                           "\t ",
                                           "OutputFile x/a.log",
                                           "ExtendedFilename 0"};
    for (const char* end : {"\n", "\r\n"}) {
        CLog::DestroyInstance();
        std::string text;
        for (const std::string& line : conf) text += line + end;
        const std::string out = Configure(text);
        EXPECT_EQ(Threshold("timing"), Norvell::LOG_ERROR);
        EXPECT_EQ(Threshold("audio_engine"), Norvell::LOG_DEBUG);      // after DebugAllFlag 1
        EXPECT_EQ(Threshold("description"), Norvell::LOG_DEBUG);       // no level check then
        EXPECT_EQ(Threshold("engine"), Norvell::LOG_ERROR);            // unknown level
        EXPECT_EQ(Threshold("engine_description"), Norvell::LOG_INFO); // first line wins
        EXPECT_EQ(Threshold("//"), Norvell::LOG_ERROR);
        EXPECT_EQ(CLog::GetInstance()->Categories().size(), 6u);
        EXPECT_EQ(CLog::GetInstance()->OutputFile(), "x/a.log"); // has a "/": kept as is
        EXPECT_EQ(out, "## DebugAllFlag : 1\n"
                       "## DebugAllFlag : 0\n"
                       "Log level verbose not existing.\n"
                       "## WARNING : this line is ignored as not well-formed one two three\n"
                       "Log level note not existing.\n"
                       "## OutputFile : x/a.log\n"
                       "## ExtendedFilename : 0\n");
    }
}

TEST_F(LoggerTest, MissingConfAndRecreatedLoggerAreUnconfigured) {
    ::testing::internal::CaptureStdout();
    CLog::GetInstance()->Configure("", "");
    CLog::GetInstance()->Configure((dir / "absent.conf").string(), "");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "#### Log conf file empty.\nConf file " +
                                                            (dir / "absent.conf").string() +
                                                            " not found.\n");

    const fs::path file = dir / "out.log";
    Configure("ExtendedFilename 0\naudio_engine debug\n", file.string());
    ASSERT_TRUE(CLog::GetInstance()->IsFileOpen());
    const std::string before = ReadText(file);
    CLog::DestroyInstance();

    CLog* fresh = CLog::GetInstance();
    EXPECT_TRUE(fresh->Categories().empty());
    EXPECT_TRUE(fresh->OutputFile().empty());
    EXPECT_FALSE(fresh->IsFileOpen());
    EXPECT_FALSE(fresh->IsEnabled("audio_engine", Norvell::LOG_NOTICE));
    EXPECT_TRUE(fresh->IsEnabled("audio_engine", Norvell::LOG_WARNING));
    EXPECT_EQ(Threshold("audio_engine"), Norvell::LOG_WARNING); // registered on first use
    std::ostringstream message;
    message << "lost";
    fresh->Log("audio_engine", Norvell::LOG_ERROR, message);
    EXPECT_EQ(ReadText(file), before);
}

TEST_F(LoggerTest, BareFileNameGoesToTheDesktopFolder) {
    const char* oldHome = std::getenv("HOME");
    const std::string savedHome = oldHome != nullptr ? oldHome : "";
    const char* oldConfig = std::getenv("XDG_CONFIG_HOME");
    const std::string savedConfig = oldConfig != nullptr ? oldConfig : "";
    setenv("HOME", dir.c_str(), 1);
    setenv("XDG_CONFIG_HOME", (dir / "cfg").c_str(), 1);
    fs::create_directories(dir / "cfg");
    fs::create_directories(dir / "Bureau");
    std::ofstream(dir / "cfg" / "user-dirs.dirs") << "# xdg\nXDG_DESKTOP_DIR=\"$HOME/Bureau\"\n";

    Configure("OutputFile engine.log\nExtendedFilename 0\n");
    EXPECT_EQ(CLog::GetInstance()->OutputFile(), (dir / "Bureau" / "engine.log").string());
    EXPECT_TRUE(fs::exists(dir / "Bureau" / "engine.log"));

    // Without an existing XDG folder: $HOME/Desktop, then $HOME itself.
    fs::remove_all(dir / "Bureau");
    EXPECT_EQ(Norvell::Platform::DesktopFolder(), dir.string());
    fs::create_directories(dir / "Desktop");
    EXPECT_EQ(Norvell::Platform::DesktopFolder(), (dir / "Desktop").string());

    setenv("HOME", savedHome.c_str(), 1);
    if (oldConfig != nullptr)
        setenv("XDG_CONFIG_HOME", savedConfig.c_str(), 1);
    else
        unsetenv("XDG_CONFIG_HOME");
}

} // namespace
