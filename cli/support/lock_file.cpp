#include "support/lock_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/ours.h"
#include "support/failure.h"

namespace cli {

base::UniqueFd OpenLockFile(const std::string& path) {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): open has no other form.
    base::UniqueFd file(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644));
    struct stat status{};
    if (!file || fstat(file.Get(), &status) != 0) {
        throw Failure{fmt::format("the lock file {} cannot be had", path), std::strerror(errno),
                      errno == ENOSPC || errno == EROFS || errno == EDQUOT
                          ? "make room there: df -h /run/lock; df -i /run/lock"
                          : fmt::format("see what lies there: ls -l {}", path)};
    }
    if (!base::IsOurs(status)) {
        throw Failure{fmt::format("the lock file {} is not ours", path),
                      fmt::format("user {} laid it there", status.st_uid),
                      fmt::format("rm {}, and see who laid it", path), std::nullopt, FailureKind::kRefused};
    }
    return file;
}

}  // namespace cli
