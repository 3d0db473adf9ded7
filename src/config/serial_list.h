// What the four operations on the SSD serial list share.
#pragma once

#include <unistd.h>

#include "common/handle.h"
#include "common/log.h"

namespace flashcache {

inline constexpr const char* kSerialFile = "/usr/vemo/etc/flashcache_ssd_sn_list.conf";
inline constexpr const char* kSerialKey = "availableSerials";

// Holds the serial list's lock. Failures are logged under the caller's own file and line.
class SerialLock {
  public:
    explicit SerialLock(Where where = Where::current()) noexcept {
        if (VLIBCFileLockTimeByFile(kLockFile, 1, kMostSeconds, &fd_) != 0) {
            fd_ = -1;
            LogError(where)("Failed to lock %s", kLockFile);
        }
    }
    SerialLock(const SerialLock&) = delete;
    SerialLock& operator=(const SerialLock&) = delete;
    ~SerialLock() {
        if (fd_ != -1 && VLIBCFileUnlockByFile(fd_) == 0) {
            close(fd_);
        }
    }

    explicit operator bool() const noexcept { return fd_ != -1; }

  private:
    static constexpr const char* kLockFile = "/var/lock/cache_config_serial_list.lock";
    static constexpr int kMostSeconds = 30;

    int fd_ = -1;
};

}  // namespace flashcache
