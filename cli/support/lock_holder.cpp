#include "support/lock_holder.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cstdio>
#include <fstream>
#include <optional>

namespace cli {
namespace {

// A line such as "2: FLOCK  ADVISORY  WRITE 812 00:19:1034 0 EOF"; one that waits has "->" before the kind.
std::optional<HeldLock> LockIn(const std::string& line) {
    int pid = 0;
    unsigned majorNumber = 0;
    unsigned minorNumber = 0;
    unsigned long long inode = 0;
    if (std::sscanf(line.c_str(), "%*[^:]: %*[A-Z] %*s %*s %d %x:%x:%llu", &pid, &majorNumber, &minorNumber,
                    &inode) != 4) {
        return std::nullopt;
    }
    return HeldLock{makedev(majorNumber, minorNumber), static_cast<ino_t>(inode), pid};
}

std::string ProcessText(pid_t pid) {
    std::string name;
    std::getline(std::ifstream(fmt::format("/proc/{}/comm", pid)), name);
    return pid <= 0 ? "a process that is not told"
                    : fmt::format("{} ({})", name.empty() ? "a process that is gone" : name, pid);
}

}  // namespace

std::vector<HeldLock> HeldLocks() {
    std::vector<HeldLock> locks;
    std::ifstream table("/proc/locks");
    for (std::string line; std::getline(table, line);) {
        if (const auto lock = LockIn(line)) {
            locks.push_back(*lock);
        }
    }
    return locks;
}

std::vector<std::string> LockHolders(const std::vector<HeldLock>& locks, const std::string& path) {
    std::vector<std::string> holders;
    struct stat status{};
    if (stat(path.c_str(), &status) != 0) {
        return holders;
    }
    for (const auto& lock : locks) {
        if (lock.device == status.st_dev && lock.inode == status.st_ino) {
            holders.push_back(ProcessText(lock.holder));
        }
    }
    return holders;
}

}  // namespace cli
