// What the machine is like: ratios of two machines can be compared only next to it.
#pragma once

namespace bench {

// Medians, in seconds.
struct MachineCosts {
    double pageFault = 0;     // the first touch of a page
    double fileStatus = 0;    // stat of a file with a short path
    double processStart = 0;  // until /bin/true has ended
    double fsync = 0;         // of a written block, on a volume without a cache
};

// Takes well under a second on a usual machine.
MachineCosts MeasureMachine();

}  // namespace bench
