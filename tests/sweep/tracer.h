// Runs something as a traced process and kills it, or a child of it, at a chosen system call, or lets that
// call fail.
#pragma once

#include <functional>
#include <map>
#include <vector>

namespace sweep {

enum class Victim { kCaller, kChild };

struct Harm {
    Victim victim = Victim::kCaller;
    int call = 0;  // which of the victim's system calls, from 1; of all children together for kChild
    std::vector<long> of{};  // the numbers of those that count; empty: all
    int error = 0;           // what it fails with; 0: the victim is killed instead
    bool stays = false;      // all that follow fail, too
};

struct Traced {
    int status = 0;               // how the caller ended, as waitpid tells it
    bool isMet = false;           // the harm took place
    bool isHung = false;          // it had to be ended: nothing moved any more
    std::map<long, int> calls{};  // how often the caller made each system call
};

// Runs `body` in a child process, which ends with its result, and waits for all its descendants, also for
// those that outlive it.
Traced RunTraced(const std::function<int()>& body, const Harm& harm);

}  // namespace sweep
