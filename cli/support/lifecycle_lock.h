// One change of the caches at a time, among the processes of this tool.
#pragma once

#include <string>

namespace cli {

// Held from the look at the caches to the last step of a change: the library leaves it to its callers to
// keep lifecycle operations apart. Waits up to 30 seconds, and says for whom; throws a Failure when another
// process still holds it then. The file holds who has the lock: pid, verb and since when.
class LifecycleLock {
  public:
    explicit LifecycleLock(const std::string& verb);
    ~LifecycleLock();
    LifecycleLock(const LifecycleLock&) = delete;
    LifecycleLock& operator=(const LifecycleLock&) = delete;

  private:
    int fd_ = -1;
};

}  // namespace cli
