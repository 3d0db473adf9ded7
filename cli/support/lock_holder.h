// Who holds which lock, as the kernel's table of locks tells.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace cli {

struct HeldLock {
    dev_t device = 0;
    ino_t inode = 0;
    pid_t holder = 0;  // 0 or less: not told
};

std::vector<HeldLock> HeldLocks();

// The processes that hold a lock on the file, as "name (pid)".
std::vector<std::string> LockHolders(const std::vector<HeldLock>& locks, const std::string& path);

}  // namespace cli
