// Advisory locks on lock files, with a bounded wait.

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/unique_fd.h"
#include "common/handle.h"
#include "common/log.h"
#include "vemoflashcache.h"

namespace flashcache {
namespace {

constexpr int kMostAttempts = 300;
constexpr int kPauseMs = 100;

struct Attempts {
    int number = 1;  // of the attempt under way
    int interrupted = 0;
    int noLocks = 0;
    int lastError = 0;
};

// Counts a failed attempt; false when another one is of no use.
bool MayRetry(Attempts& attempts) noexcept {
    attempts.lastError = errno;
    switch (attempts.lastError) {
        case EAGAIN:
            return true;
        case ENOLCK:
            ++attempts.noLocks;
            return true;
        case EINTR:
            ++attempts.interrupted;
            return true;
        default:
            return false;
    }
}

bool LockWithin30Seconds(int fd, int operation, Attempts& attempts) noexcept {
    while (attempts.number <= kMostAttempts) {
        if (flock(fd, operation | LOCK_NB) == 0) {
            return true;
        }
        if (!MayRetry(attempts)) {
            return false;
        }
        usleep(kPauseMs * 1000);
        ++attempts.number;
    }
    return false;
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCacheLock(const char* path, int exclusive, int* fd) {
    if (path == nullptr || fd == nullptr) {
        LogError()("Incorrect Parameter");
        return 0;
    }
    base::UniqueFd file(open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!file) {
        LogError()("Failed to open lock file %s: %s", path, strerror(errno));
        return 0;
    }
    Attempts attempts;
    if (!LockWithin30Seconds(file.Get(), exclusive != 0 ? LOCK_EX : LOCK_SH, attempts)) {
        LogError()("Failed to lock %s. EINTR: %d, ENOLCK: %d, last err: %s (timeout %d second)", path,
                   attempts.interrupted, attempts.noLocks, strerror(attempts.lastError),
                   attempts.number * kPauseMs / 1000);
        return 0;
    }
    *fd = file.Release();
    return 1;
}

int VEMOFlashCacheUnlock(int fd) {
    if (fd < 0) {
        LogError()("Incorrect parameter");
        return 0;
    }
    if (flock(fd, LOCK_UN) != 0) {
        LogError()("Unlock failed");
        return 0;
    }
    if (close(fd) != 0) {
        LogError()("Failed to close file");
        return 0;
    }
    return 1;
}
