#include "caches/flush_lock.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "support/lock_file.h"

namespace cli {
namespace {

std::string LockPathOf(const Cache& cache) {
    const std::string pair = KernelName(cache.Ssd(), cache.Volume());
    return fmt::format("/run/lock/vemocachectl-flush-{}.lock", pair.empty() ? "unknown" : pair);
}

// A lock of the open file, such as flock's, but one that can be looked at without taking it.
struct flock WholeFile() {
    struct flock lock{};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

// 0, or why the lock cannot be had: EAGAIN when another holds it.
int TryLock(int file) {
    struct flock lock = WholeFile();
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): fcntl has no other form.
    const int error = fcntl(file, F_OFD_SETLK, &lock) == 0 ? 0 : errno;
    return error == EACCES ? EAGAIN : error;
}

}  // namespace

FlushLock::FlushLock(const Cache& cache) : file_(OpenLockFile(LockPathOf(cache))) {
    int error = TryLock(file_.Get());
    // A change holds it for a moment, a flush for long.
    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (error == EAGAIN && std::chrono::steady_clock::now() < patience) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        error = TryLock(file_.Get());
    }
    if (error == 0) {
        return;
    }
    if (error == EAGAIN) {
        throw Failure{
            fmt::format("a flush of {} runs", cache.Name()), "another vemocachectl works on it",
            fmt::format(
                "\"vemocachectl flush --status --follow {0}\" shows it, \"vemocachectl flush --cancel {0}\" "
                "ends it",
                cache.Name()),
            std::nullopt, FailureKind::kInUse};
    }
    throw Failure{fmt::format("the lock file {} cannot be locked", LockPathOf(cache)), std::strerror(error),
                  ""};
}

bool FlushRuns(const Cache& cache) {
    // Looking makes no file: there may be no room for one.
    if (access(LockPathOf(cache).c_str(), F_OK) != 0) {
        return false;
    }
    const auto file = OpenLockFile(LockPathOf(cache));
    struct flock lock = WholeFile();
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): fcntl has no other form.
    return fcntl(file.Get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

}  // namespace cli
