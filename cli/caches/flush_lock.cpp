#include "caches/flush_lock.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "support/lock_file.h"

namespace cli {
namespace {

std::string PathOf(const Cache& cache) {
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

}  // namespace

FlushLock::FlushLock(const Cache& cache) : file_(OpenLockFile(PathOf(cache))) {
    struct flock lock = WholeFile();
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): fcntl has no other form.
    if (fcntl(file_.get(), F_OFD_SETLK, &lock) == 0) {
        return;
    }
    const int error = errno;
    if (error == EAGAIN || error == EACCES) {
        throw Failure{
            fmt::format("a flush of {} runs", cache.Name()), "another vemocachectl works on it",
            fmt::format("vemocachectl flush --status --follow {0} shows it, vemocachectl flush --cancel {0} "
                        "ends it",
                        cache.Name()),
            std::nullopt, FailureKind::kInUse};
    }
    throw Failure{fmt::format("the lock file {} cannot be locked", PathOf(cache)), std::strerror(error), ""};
}

bool FlushRuns(const Cache& cache) {
    // Looking makes no file: there may be no room for one.
    if (access(PathOf(cache).c_str(), F_OK) != 0) {
        return false;
    }
    const auto file = OpenLockFile(PathOf(cache));
    struct flock lock = WholeFile();
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): fcntl has no other form.
    return fcntl(file.get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

}  // namespace cli
