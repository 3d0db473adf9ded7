#pragma once

#include <memory>
#include <string>

#include "base/unique_fd.h"
#include "simulation/kernel/clean_pace.h"
#include "simulation/kernel/tree.h"

namespace simulation {

// A record of what is asked of the cache devices, in the text form of block traces: a line a request, as it
// is queued. Where the file takes no more, the rest is not recorded.
class RequestTrace {
  public:
    RequestTrace(base::UniqueFd file, const CleanPace& pace);

    // What stands between a cache device and its cache: all requests pass it. `name` is the device's.
    std::unique_ptr<BlockTarget> Around(BlockTarget& target, const std::string& name);

    // `what` as such traces tell it: "R", "W", "D" or "F" for a flush, which has no place and length.
    void Note(unsigned device, const char* what, uint64_t offset, uint64_t length);

  private:
    base::UniqueFd file_;
    const CleanPace& pace_;
    CleanPace::Clock::time_point start_;
    uint64_t sequence_ = 0;
};

}  // namespace simulation
