// One flush of a cache at a time, among the processes of this tool.
#pragma once

#include "base/unique_fd.h"
#include "caches/inventory.h"

namespace cli {

// Held while a flush runs and gone with its process, however that ends: unlike the recorded state, it
// tells a running flush from one that was killed. Changes that a flush must not meet hold it, too. Throws a
// Failure when another process holds it.
class FlushLock {
  public:
    explicit FlushLock(const Cache& cache);

  private:
    base::UniqueFd file_;
};

// Whether a process holds the lock of this cache. Looking never gets in the way of one that takes it.
bool FlushRuns(const Cache& cache);

}  // namespace cli
