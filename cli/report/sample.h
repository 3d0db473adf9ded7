// The caches' statistics over some seconds.
#pragma once

#include <functional>
#include <vector>

#include "stats/watch.h"

namespace cli {

struct ReportSample {
    double seconds = 0;  // since the first
    Round round;
};

// Readings over that time, at most 61 of them, and the first and the last at its ends. `tell` hears how much
// of it is over, between 0 and 1. A reading that takes longer than
// `patience` seconds ends it early.
std::vector<ReportSample> SampleCaches(double seconds, double patience,
                                       const std::function<void(double share)>& tell);

}  // namespace cli
