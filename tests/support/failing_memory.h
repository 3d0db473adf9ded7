// Allocations that fail: those that the calling thread makes by operator new, calloc, strdup and vasprintf.
#pragma once

#include <utility>

namespace memory {

struct Plan {
    int allocation = 0;  // that fails, 1 the next one; 0 for none
    bool stays = false;  // whether all from then on fail
    int failed = 0;      // how many have
};

// Takes effect where failing_memory.cpp is part of the program.
inline thread_local Plan plan;

// Keeps the plan from a test's own allocations for a scope.
class Suspended {
  public:
    Suspended() noexcept : saved_(std::exchange(plan, {})) {}
    Suspended(const Suspended&) = delete;
    Suspended& operator=(const Suspended&) = delete;
    ~Suspended() { plan = saved_; }

  private:
    Plan saved_;
};

}  // namespace memory
