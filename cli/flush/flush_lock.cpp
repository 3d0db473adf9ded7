#include "flush/flush_lock.h"

#include <fmt/format.h>
#include <sys/file.h>

#include <cerrno>
#include <cstring>

#include "support/lock_file.h"

namespace cli {

namespace {

std::string PathOf(const Cache& cache) {
    const std::string pair = KernelName(cache.Ssd(), cache.Volume());
    return fmt::format("/run/lock/vemocachectl-flush-{}.lock", pair.empty() ? "unknown" : pair);
}

}  // namespace

FlushLock::FlushLock(const Cache& cache) : file_(OpenLockFile(PathOf(cache))) {
    if (flock(file_.get(), LOCK_EX | LOCK_NB) == 0) {
        return;
    }
    const int error = errno;
    if (error == EWOULDBLOCK) {
        throw Failure{
            fmt::format("a flush of {} runs already", cache.Name()), "another vemocachectl runs it",
            fmt::format("vemocachectl flush --status --follow {0} shows it, flush --cancel {0} ends it",
                        cache.Name()),
            std::nullopt, FailureKind::kInUse};
    }
    throw Failure{fmt::format("the lock file {} cannot be locked", PathOf(cache)), std::strerror(error), ""};
}

}  // namespace cli
