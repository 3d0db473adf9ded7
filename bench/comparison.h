// One piece of the library's work, measured against another way to do the same.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "measure.h"

namespace bench {

// As the table is to show them.
enum class Unit { kSeconds, kBytes, kNone };

struct Measure {
    const char* name;
    double Cost::* of;
    Unit unit = Unit::kSeconds;
};

inline constexpr Measure kWall{"wall", &Cost::wall};
inline constexpr Measure kCpu{"CPU", &Cost::cpu};
inline constexpr Measure kMemory{"memory", &Cost::peakMemory, Unit::kBytes};
inline constexpr Measure kMeanError{"mean", &Cost::meanError, Unit::kNone};
inline constexpr Measure kWorstError{"worst", &Cost::worstError, Unit::kNone};
inline constexpr Measure kMeasures[] = {kWall, kCpu, kMemory, kMeanError, kWorstError};

// A line of the table: ours as a multiple of the baseline, by one measure.
struct Line {
    Measure measure;
    double goal = 0;  // the most that the ratio may be; 0: shown for comparison
};

// Does the work once. What it must set up is its own business and not part of the cost. Throws when the work
// did not do what it is measured for.
using Run = std::function<Cost()>;

struct Comparison {
    std::string name;  // "<group>/<what>"
    Run ours;
    std::string baselineName;
    Run baseline;
    int pairs = 0;  // how often both are run, one after the other, so that drift of the machine cancels out
    std::vector<Line> lines;
    // Not 0: both are ours, on inputs of which one is so many times as large, and the lines show the
    // exponent with which the cost grows.
    double growth = 0;
};

// Makes a benchmark of it, to be run when it is selected.
void Register(const Comparison& comparison);

}  // namespace bench
