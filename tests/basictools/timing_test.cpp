#include "basictools/exception.h"
#include "basictools/logger/log.h"
#include "basictools/timing.h"

#include <gtest/gtest.h>

#include <vector>

using Norvell::CLog;
using Norvell::CTiming;

namespace {

int64_t fakeNow = 0;
int64_t FakeClock() {
    return fakeNow;
}

// Message texts of the "timing" lines written while the fixture lives.
class TimingTest : public ::testing::Test {
protected:
    void SetUp() override {
        CLog::DestroyInstance();
        CTiming::SetClock(&FakeClock);
        CLog::GetInstance()->SetLineSink([this](const std::string& line) {
            if (line.find("| timing ") != std::string::npos)
                texts.push_back(line.substr(line.rfind(" | ") + 3));
        });
    }
    void TearDown() override {
        CLog::DestroyInstance();
        CTiming::SetClock(nullptr);
    }
    void Measure(uint32_t level, bool milliseconds, int64_t microseconds) {
        fakeNow = 1'000'000;
        CTiming timer("Read Audio Engine XML", level, milliseconds);
        fakeNow += microseconds * 10; // the clock counts 100 ns units
    }
    std::vector<std::string> texts;
};

TEST_F(TimingTest, ReportTruncatesToTheUnit) {
    CLog::GetInstance()->SetThreshold("timing", Norvell::LOG_DEBUG);
    Measure(2, true, 1999);
    Measure(1, false, 1999);
    Measure(3, true, 20'000);
    EXPECT_EQ(texts, (std::vector<std::string>{"Read Audio Engine XML : 1 ms\n",
                                               "Read Audio Engine XML : 1999 micros\n",
                                               "Read Audio Engine XML : 20 ms\n"}));
}

TEST_F(TimingTest, LevelsOutsideOneToThreeAndDisabledCategoryStaySilent) {
    CLog::GetInstance()->SetThreshold("timing", Norvell::LOG_DEBUG);
    Measure(0, true, 5000);
    Measure(4, true, 5000);
    CLog::GetInstance()->SetThreshold("timing", Norvell::LOG_WARNING);
    Measure(2, true, 5000);
    EXPECT_TRUE(texts.empty());
}

TEST(ExceptionTest, TextCarriesTheThrowSite) {
    EXPECT_STREQ(Norvell::CException("x", "f", 12).what(), "x(f::Line 12)");
    try {
        throw Norvell::CException("Node (params) required not defined ", "src.cpp", -3);
    } catch (const std::exception& error) {
        EXPECT_STREQ(error.what(), "Node (params) required not defined (src.cpp::Line -3)");
    }
}

} // namespace
