#include "basictools/timing.h"

#include "basictools/logger/log.h"

#include <atomic>
#include <chrono>
#include <utility>

namespace Norvell {

namespace {

int64_t SystemClock100ns() {
    using namespace std::chrono;
    // system_clock counts from 1970-01-01 UTC.
    return duration_cast<duration<int64_t, std::ratio<1, 10000000>>>(
               system_clock::now().time_since_epoch())
        .count();
}

std::atomic<CTiming::Clock> currentClock{&SystemClock100ns};

} // namespace

CTiming::CTiming(std::string name, uint32_t level, bool useMilliseconds)
    : name(std::move(name)), level(level), useMilliseconds(useMilliseconds), start(Now100ns()) {}

CTiming::~CTiming() {
    const int64_t elapsed = Elapsed();
    if (level < 1 || level > 3) return;
    const int reportLevel = static_cast<int>(level);
    VANTOR_LOG("timing", reportLevel,
               name << " : " << static_cast<int32_t>(static_cast<uint32_t>(elapsed)) << " "
                    << Unit());
}

int64_t CTiming::Elapsed() {
    stop = Now100ns();
    const int64_t delta = stop - start;
    // Integer division truncates toward zero.
    return useMilliseconds ? delta / 10000 : delta / 10;
}

std::string CTiming::Unit() const {
    return useMilliseconds ? "ms" : "micros";
}

int64_t CTiming::Now100ns() {
    return currentClock.load(std::memory_order_relaxed)();
}

CTiming::Clock CTiming::SetClock(Clock clock) {
    return currentClock.exchange(clock != nullptr ? clock : &SystemClock100ns);
}

} // namespace Norvell
