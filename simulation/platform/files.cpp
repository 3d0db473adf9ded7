#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "base/unique_fd.h"
#include "simulation/platform/errors.h"
#include "simulation/platform/whole_file.h"

using namespace vemo::platform;

namespace {

enum class Attempt { kLocked, kBusy, kReplaced, kFailed };

Attempt TryLock(int file, const char* path, int operation) {
    const bool locked = flock(file, operation | LOCK_NB) == 0;
    const int error = locked ? 0 : errno;
    const bool temporary = error == EWOULDBLOCK || error == EINTR || error == ENOLCK;
    struct stat own{};
    struct stat named{};
    if ((!locked && !temporary) || fstat(file, &own) != 0) return Attempt::kFailed;
    // A lock on a file that was removed meanwhile excludes nobody.
    const bool same = stat(path, &named) == 0 && named.st_dev == own.st_dev && named.st_ino == own.st_ino;
    if (!same) return Attempt::kReplaced;
    errno = error;
    return locked ? Attempt::kLocked : Attempt::kBusy;
}

}  // namespace

int VLIBCFileExist(const char* path) {
    struct stat status{};
    return path != nullptr && stat(path, &status) == 0 ? 1 : 0;
}

int VLIBCFileCheckDir(const char* path) {
    struct stat status{};
    return path != nullptr && stat(path, &status) == 0 && S_ISDIR(status.st_mode) ? 1 : 0;
}

int VLIBCFileTouch(const char* path) {
    if (path == nullptr) return Fail(VLIBC_ERR_BAD_PARAMETER);
    const base::UniqueFd file(open(path, O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666));
    if (!file || futimens(file.Get(), nullptr) != 0) return Fail(VLIBC_ERR_OPEN_FAILED);
    return 0;
}

// `mode`: 0 shares the lock with others of mode 0, anything else excludes everybody.
int VLIBCFileLockTimeByFile(const char* path, int mode, int seconds, int* fd) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kPause{20};
    if (path == nullptr || fd == nullptr) return Fail(VLIBC_ERR_BAD_PARAMETER);
    const auto deadline = Clock::now() + std::chrono::seconds(std::max(seconds, 0));
    base::UniqueFd file;
    for (;;) {
        if (!file)
            file = base::UniqueFd(open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0644));
        if (!file) return Fail(VLIBC_ERR_OPEN_FAILED);
        const Attempt attempt = TryLock(file.Get(), path, mode == 0 ? LOCK_SH : LOCK_EX);
        if (attempt == Attempt::kLocked) break;
        if (attempt == Attempt::kFailed || Clock::now() >= deadline) return Fail(kErrLocked);
        if (attempt == Attempt::kReplaced) file.Reset();
        if (attempt == Attempt::kBusy) std::this_thread::sleep_for(kPause);
    }
    *fd = file.Release();
    return 0;
}

int VLIBCFileUnlockByFile(int fd) {
    return flock(fd, LOCK_UN) == 0 ? 0 : Fail(VLIBC_ERR_BAD_PARAMETER);
}
