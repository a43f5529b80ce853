#include "basictools/exception.h"
#include "basictools/timing.h"
#include "log_capture.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

int64_t fakeNow = 0;

TEST(TimingTest, ReportsTruncateToTheUnitAndOtherLevelsStaySilent) {
    LogCapture log({{"timing", Norvell::LOG_DEBUG}});
    Norvell::CTiming::SetClock([] { return fakeNow; });
    using Run = std::tuple<uint32_t, bool, int64_t>; // level, in ms, microseconds
    for (const auto& [level, milliseconds, micros] :
         {Run{2, true, 1999}, Run{1, false, 1999}, Run{3, true, 20'000}, Run{0, true, 5000},
          Run{4, true, 5000}}) {
        Norvell::CTiming timer("Read Audio Engine XML", level, milliseconds);
        fakeNow += micros * 10; // the clock counts 100 ns units
    }
    Norvell::CTiming::SetClock(nullptr);
    EXPECT_EQ(log.Texts("timing"), (std::vector<std::string>{"Read Audio Engine XML : 1 ms",
                                                             "Read Audio Engine XML : 1999 micros",
                                                             "Read Audio Engine XML : 20 ms"}));
}

TEST(ExceptionTest, TextCarriesTheThrowSite) {
    EXPECT_STREQ(Norvell::CException("x", "f", 12).what(), "x(f::Line 12)");
    EXPECT_STREQ(Norvell::CException("Node (params) required not defined ", "src.cpp", -3).what(),
                 "Node (params) required not defined (src.cpp::Line -3)");
}

} // namespace
