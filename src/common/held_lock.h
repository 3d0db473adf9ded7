// A lock file held for a scope.
#pragma once

#include "common/log.h"
#include "vemoflashcache.h"

namespace flashcache {

// Holds the exclusive lock on a lock file. Failures are logged under the caller's own file and line.
class HeldLock {
  public:
    explicit HeldLock(const char* path, Where where = Where::current()) noexcept : where_(where) {
        if (VEMOFlashCacheLock(path, 1, &fd_) != 1) {
            LogError(where_)("Failed to get lock");
        }
    }
    HeldLock(const HeldLock&) = delete;
    HeldLock& operator=(const HeldLock&) = delete;
    ~HeldLock() {
        if (fd_ >= 0 && VEMOFlashCacheUnlock(fd_) != 1) {
            LogError(where_)("Unlock file failed");
        }
    }

    explicit operator bool() const noexcept { return fd_ >= 0; }

  private:
    Where where_;
    int fd_ = -1;
};

}  // namespace flashcache
