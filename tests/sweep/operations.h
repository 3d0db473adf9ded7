// The library's operations as the sweeps call them.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace sweep {

// What one call gave.
struct Result {
    int value = 0;
    std::string complaint;  // what it left wrong, such as an out value on failure; empty: nothing
};

struct Operation {
    std::string name;
    std::vector<int> documented;    // all results that there may be
    std::function<Result()> call;   // also releases what it got
    std::function<void()> prepare;  // before each try, in the driver; may be empty
    bool changesCaches = false;     // of the kernel: each try begins on a new one
    // Of those that a kill may interrupt: what a process does that finds the work begun, and what is wrong
    // then; empty: it calls again, which must give 0.
    std::function<std::string()> finish = nullptr;
    bool writes = false;
};

const std::vector<Operation>& Operations();

// A cache is there and configured, with another entry that nothing may change.
void PrepareAppliance();

}  // namespace sweep
