#pragma once
// Scoped timer: reports the time between construction and destruction to the
// "timing" log category.
#include <cstdint>
#include <string>

namespace Norvell {

class CTiming {
public:
    // level: 1, 2 or 3 report; any other value keeps the timer silent.
    CTiming(std::string name, uint32_t level, bool useMilliseconds);
    virtual ~CTiming();
    CTiming(const CTiming&) = delete;
    CTiming& operator=(const CTiming&) = delete;

    virtual int64_t Elapsed();
    virtual std::string Unit() const;

    // System clock in 100-nanosecond units since 1970-01-01 UTC.
    static int64_t Now100ns();

    // Replaces the clock read by Now100ns (nullptr restores the system
    // clock); returns the previous one. Lets tests drive a timer exactly.
    using Clock = int64_t (*)();
    static Clock SetClock(Clock clock);

private:
    std::string name;
    uint32_t level;
    bool useMilliseconds;
    int64_t start;
    int64_t stop = 0;
};

} // namespace Norvell
