// A process of a wanted size that does work on demand.
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "measure.h"

namespace bench {

class Worker {
  public:
    // Forks a process with `residentBytes` of memory in use that can do any of the `jobs`.
    Worker(std::size_t residentBytes, const std::vector<std::function<void()>>& jobs);
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;
    ~Worker();

    // Has it do one of its jobs. Throws when the job failed.
    Cost Do(int job);

  private:
    int socket_ = -1;
    pid_t process_ = -1;
};

}  // namespace bench
