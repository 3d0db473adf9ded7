// Stands between the platform's libraries and the system calls with which they change files: counts them,
// lets one fail, or ends the process in the middle of its work.
#pragma once

#include <string>
#include <vector>

namespace faults {

enum class Kind { kNone, kFailOnce, kFailFromThere, kKill };

struct Plan {
    Kind kind = Kind::kNone;
    int atCall = 0;        // which call is hit, from 1
    int error = 0;         // its errno
    bool nameless = true;  // whether the file system has files without a name
    bool shortWrites = false;
    bool oldFiles = false;      // files look as if nobody had written to them for a while
    bool coarseStamps = false;  // the file system's time stamps know the clock's ticks alone
    int secondsAhead = 0;       // files look as if they were written so much later
};

// From here on calls go by the plan, until the next one.
void Begin(const Plan& plan);
// The calls since Begin, by name; ends the plan.
std::vector<std::string> End();

// Lets the n-th allocation from here on fail, 0: none. Whether the last one asked for has failed.
bool FailAllocation(int number);

// How many files were opened for reading since Begin.
int Opened();

}  // namespace faults
