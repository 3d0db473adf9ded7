#include "flush/flush_lock.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace cli {

FlushLock::FlushLock(const Cache& cache) {
    const std::unique_ptr<char, decltype(&std::free)> pair(
        VEMOFlashCacheSysctlDevNameGet(cache.Ssd().c_str(), cache.Volume().c_str()), std::free);
    const std::string path =
        fmt::format("/run/lock/vemocachectl-flush-{}.lock", pair ? pair.get() : "unknown");
    fd_ = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd_ >= 0 && flock(fd_, LOCK_EX | LOCK_NB) == 0) {
        return;
    }
    const int error = errno;
    if (fd_ >= 0) {
        close(fd_);
    }
    if (error == EWOULDBLOCK) {
        throw Failure{
            fmt::format("a flush of {} runs already", cache.Name()), "another vemocachectl runs it",
            fmt::format("vemocachectl flush --status --follow {0} shows it, flush --cancel {0} ends it",
                        cache.Name())};
    }
    throw Failure{fmt::format("the lock file {} cannot be had", path), std::strerror(error), ""};
}

FlushLock::~FlushLock() {
    close(fd_);
}

}  // namespace cli
