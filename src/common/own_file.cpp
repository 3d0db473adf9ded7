#include "common/own_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/ours.h"
#include "base/unique_fd.h"

namespace flashcache {
namespace {

// How often a name is claimed while somebody lays things there all the time.
constexpr int kMostAttempts = 100;

const char* KindName(const struct stat& status) noexcept {
    switch (status.st_mode & S_IFMT) {
        case S_IFREG:
            return status.st_nlink == 1 ? "a file" : "a file with other names";
        case S_IFLNK:
            return "a symbolic link";
        case S_IFIFO:
            return "a named pipe";
        case S_IFDIR:
            return "a folder";
        default:
            return "no regular file";
    }
}

void LogRefusal(const char* path, const struct stat& status, Where where) noexcept {
    LogError(where)("Refused %s: %s of user %u lies there; remove it (rm -rf %s) and see who laid it", path,
                    KindName(status), static_cast<unsigned>(status.st_uid), path);
}

// What stands between us and a file that we could not make: ours, or removed if foreign (kMade: try again).
Claim ClearName(const char* path, Where where) noexcept {
    struct stat status{};
    if (lstat(path, &status) != 0) {
        return Claim::kMade;
    }
    if (base::IsOurs(status)) {
        return Claim::kOurs;
    }
    if ((S_ISDIR(status.st_mode) ? rmdir(path) : unlink(path)) != 0 && errno != ENOENT) {
        LogRefusal(path, status, where);
        return Claim::kFailed;
    }
    LogError(where)("Removed %s: it was %s of user %u", path, KindName(status),
                    static_cast<unsigned>(status.st_uid));
    return Claim::kMade;
}

}  // namespace

Found LookForOurs(const char* path, Where where) noexcept {
    struct stat status{};
    if (lstat(path, &status) != 0) {
        return Found::kNothing;
    }
    if (!base::IsOurs(status)) {
        LogRefusal(path, status, where);
        return Found::kForeign;
    }
    return Found::kOurs;
}

File OpenOurFile(const char* path, Where where) noexcept {
    // A pipe would keep us waiting without O_NONBLOCK, which a regular file does not know.
    base::UniqueFd fd(open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status{};
    if (!fd || fstat(fd.Get(), &status) != 0) {
        return File();
    }
    if (!base::IsOurs(status)) {
        LogRefusal(path, status, where);
        errno = EPERM;
        return File();
    }
    File file(fdopen(fd.Get(), "r"));
    if (file) {
        fd.Release();
    }
    return file;
}

Claim ClaimFile(const char* path, mode_t mode, Where where) noexcept {
    for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
        const base::UniqueFd made(open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
        if (made) {
            return Claim::kMade;
        }
        if (errno != EEXIST) {
            break;
        }
        const Claim cleared = ClearName(path, where);
        if (cleared != Claim::kMade) {
            return cleared;
        }
    }
    __extension__ LogError(where)("Failed to make %s, Error=%m", path);
    return Claim::kFailed;
}

}  // namespace flashcache
