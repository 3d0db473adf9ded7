#include "support/lifecycle_lock.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <ctime>
#include <fstream>

#include "output/answer.h"
#include "support/failure.h"
#include "support/lock_file.h"
#include "vemoflashcache.h"

namespace cli {
namespace {

constexpr const char* kLockFile = "/run/lock/vemocachectl.lock";

// Whoever holds the lock, as they wrote it; a file without a text is one that is just being taken or given
// back.
std::string Holder() {
    std::string text;
    std::getline(std::ifstream(kLockFile), text);
    return text.empty() ? "another vemocachectl" : Printable(text);
}

// Also sees to it that the file is ours before the library opens it by its name.
bool IsHeld() {
    const auto file = OpenLockFile(kLockFile);
    return flock(file.Get(), LOCK_EX | LOCK_NB) != 0;
}

void Sign(int fd, const std::string& verb) {
    const std::string text = fmt::format("vemocachectl {} (pid {}), since {:%F %T}\n", verb, getpid(),
                                         fmt::localtime(std::time(nullptr)));
    // Only who waits reads it: a full disk must not keep the work from being done.
    if (ftruncate(fd, 0) == 0 && pwrite(fd, text.data(), text.size(), 0) < 0) {
        return;
    }
}

}  // namespace

LifecycleLock::LifecycleLock(const std::string& verb) {
    if (IsHeld()) {
        Note(fmt::format("waiting up to 30 seconds for {}", Holder()));
    }
    if (VEMOFlashCacheLock(kLockFile, 1, &fd_) != 1) {
        throw Failure{"another vemocachectl is changing the caches",
                      fmt::format("{} holds {} for more than 30 seconds", Holder(), kLockFile),
                      "try again when it has ended", std::nullopt, FailureKind::kInUse};
    }
    Sign(fd_, verb);
}

LifecycleLock::~LifecycleLock() {
    // Nobody may be named once the lock is free.
    if (ftruncate(fd_, 0) != 0) {
        Note(fmt::format("{} still names this process", kLockFile));
    }
    VEMOFlashCacheUnlock(fd_);
}

}  // namespace cli
