// Shows a watch on standard output while it goes on.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "stats/watch.h"

namespace cli {

enum class Lines { kForPeople, kCsv, kJson };

struct Pace {
    std::chrono::duration<double> interval;
    std::int32_t count = 0;  // readings; 0: until it is interrupted or nobody reads any more
};

// The time in a text such as "2" or "0.5", from a tenth of a second to a day; why a text is none, else empty.
std::chrono::duration<double> SecondsIn(const std::string& text);
std::string WhyNoSeconds(const std::string& text);

// For people a table with the course of the last readings, drawn over the one before where the terminal can
// do that; CSV a line a cache and reading; JSON a line a reading.
void ShowWatch(Watch watch, Lines lines, const Pace& pace);

}  // namespace cli
