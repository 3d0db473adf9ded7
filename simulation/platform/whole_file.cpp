#include "simulation/platform/whole_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>

#include <climits>
#include <cstdio>

#include "base/unique_fd.h"
#include "base/write_all.h"
#include "simulation/platform/errors.h"

namespace vemo::platform {

namespace {

constexpr size_t kLargestFile = size_t{64} << 20;

// Reads to the end, one byte more asked for than is expected: its absence shows the end.
bool ReadAll(int fd, size_t expected, std::string& text) {
    size_t length = 0;
    text.resize(expected + 1);
    for (;;) {
        const ssize_t count = read(fd, text.data() + length, text.size() - length);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        length += static_cast<size_t>(count);
        if (count == 0 || length == expected) break;
        if (length > kLargestFile) {
            errno = EFBIG;
            return false;
        }
        if (length == text.size()) text.resize(2 * length + 4096);
    }
    text.resize(length);
    return true;
}

// Follows the symbolic links at the end of `path`; the file itself need not exist. A link of somebody else,
// who may have laid it in a folder that all can write to, is not followed: nothing on failure.
std::optional<std::string> FollowLinks(std::string path) {
    constexpr int kMostLinks = 40;
    for (int hops = 0; hops < kMostLinks; ++hops) {
        const base::UniqueFd entry(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
        struct stat status{};
        if (!entry && errno == ENOENT) return path;
        if (!entry || fstat(entry.Get(), &status) != 0) return std::nullopt;
        if (!S_ISLNK(status.st_mode)) return path;
        if (status.st_uid != 0 && status.st_uid != geteuid()) {
            errno = EACCES;
            return std::nullopt;
        }
        char link[PATH_MAX];
        const ssize_t length = readlinkat(entry.Get(), "", link, sizeof link);
        if (length <= 0) return std::nullopt;
        const std::string_view target(link, static_cast<size_t>(length));
        path.erase(target.front() == '/' ? 0 : path.rfind('/') + 1);
        path += target;
    }
    errno = ELOOP;
    return std::nullopt;
}

// A file in the making, in the folder where it will stand. It has no name until it is complete, so that
// nothing is left of it should we die; where the file system has no nameless files, it has one from the
// start.
class NewFile {
  public:
    NewFile(int folder, bool nameless, mode_t mode) : folder_(folder) {
        if (nameless) {
            file_ = base::UniqueFd(openat(folder, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, mode));
            return;
        }
        WithFreshName([&] {
            file_ = base::UniqueFd(
                openat(folder_, name_, O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC | O_NOFOLLOW, mode));
            if (!file_) return false;
            const bool isHeld = Hold();
            if (isHeld && IsNamed(file_.Get())) return true;
            // Taken for abandoned before we held it, and removed by whoever holds it; without locks by us.
            if (!isHeld && errno != EWOULDBLOCK) unlinkat(folder_, name_, 0);
            file_.Reset();
            errno = EEXIST;
            return false;
        });
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    ~NewFile() {
        const int savedErrno = errno;
        if (named_) unlinkat(folder_, name_, 0);
        errno = savedErrno;
    }

    explicit operator bool() const { return static_cast<bool>(file_); }
    int Fd() const { return file_.Get(); }

    bool GiveName() {
        if (named_) return true;
        if (!Hold()) return false;
        return WithFreshName([&] {
            if (linkat(file_.Get(), "", folder_, name_, AT_EMPTY_PATH) == 0) return true;
            if (errno == EEXIST) return false;
            const std::string self = "/proc/self/fd/" + std::to_string(file_.Get());
            return linkat(AT_FDCWD, self.c_str(), folder_, name_, AT_SYMLINK_FOLLOW) == 0;
        });
    }
    bool RenameTo(const char* name) {
        if (renameat(folder_, name_, folder_, name) != 0) return false;
        named_ = false;
        return true;
    }

  private:
    // Few names, tried in turn, so that what a process left behind when it was killed is met and removed by
    // the next. Only where others hold them all, such as in a folder that everybody may write to, one is
    // drawn.
    template <typename Make>
    bool WithFreshName(const Make& make) {
        constexpr unsigned kOrdinaryNames = 8;
        for (unsigned attempt = 0; attempt < 100 && !named_; ++attempt) {
            unsigned number = attempt;
            if (attempt >= kOrdinaryNames && getrandom(&number, sizeof number, 0) != sizeof number)
                return false;
            std::snprintf(name_, sizeof name_, ".vemo-%08x", number);
            named_ = make() || (errno == EEXIST && RemoveAbandoned() && make());
            if (!named_ && errno != EEXIST) return false;
        }
        return named_;
    }

    // The file is locked as long as its maker lives: so whoever meets it can tell it from one that was left
    // behind.
    bool Hold() const {
        return flock(file_.Get(), LOCK_EX | LOCK_NB) == 0 || errno == ENOLCK || errno == EINVAL ||
               errno == EOPNOTSUPP;  // a file system without locks, where nothing is taken for abandoned
    }

    // Whether the name still belongs to this file.
    bool IsNamed(int fd) const {
        struct stat held{};
        struct stat named{};
        return fstat(fd, &held) == 0 && fstatat(folder_, name_, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
               named.st_ino == held.st_ino && named.st_dev == held.st_dev;
    }

    // Removes what lies under the name if it is a file that nobody is making any more.
    bool RemoveAbandoned() {
        const base::UniqueFd left(openat(folder_, name_, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat status{};
        const bool isAbandoned = left && fstat(left.Get(), &status) == 0 && S_ISREG(status.st_mode) &&
                                 flock(left.Get(), LOCK_EX | LOCK_NB) == 0 &&
                                 IsNamed(left.Get());  // another may have been faster, and made its own
        const bool isGone = isAbandoned && unlinkat(folder_, name_, 0) == 0;
        errno = EEXIST;
        return isGone;
    }

    int folder_;
    base::UniqueFd file_;
    bool named_ = false;
    char name_[24] = "";
};

// Fills the new file and puts it in the place of `name`; `old` is what stands there, if anything.
bool Install(NewFile& file, int folder, const char* name, std::string_view content, const struct stat* old) {
    if (!base::WriteAll(file.Fd(), content)) return false;
    if (old != nullptr) {  // owner first: a change of owner may clear bits of the mode
        if (fchown(file.Fd(), old->st_uid, old->st_gid) != 0) return false;
        if (fchmod(file.Fd(), old->st_mode & 07777) != 0) return false;
    }
    if (fsync(file.Fd()) != 0 || !file.GiveName() || !file.RenameTo(name)) return false;
    return fsync(folder) == 0 || errno == EINVAL;  // EINVAL: a file system without durable folders
}

}  // namespace

std::optional<std::string> ReadWholeFile(const char* path, struct stat* status) {
    struct stat own{};
    struct stat& found = status == nullptr ? own : *status;
    // Without O_NONBLOCK a named pipe would hold us up for ever.
    const base::UniqueFd file(open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    std::string text;
    bool good = file && fstat(file.Get(), &found) == 0;
    if (good && !S_ISREG(found.st_mode)) {
        errno = S_ISDIR(found.st_mode) ? EISDIR : EINVAL;
        good = false;
    } else if (good && static_cast<size_t>(found.st_size) > kLargestFile) {
        errno = EFBIG;
        good = false;
    }
    if (good && ReadAll(file.Get(), static_cast<size_t>(found.st_size), text)) return text;
    Fail(VLIBC_ERR_OPEN_FAILED);
    return std::nullopt;
}

std::optional<std::string> ReadFileToEdit(const char* path) {
    struct stat status{};
    if (stat(path, &status) != 0 && errno == ENOENT) return std::string();
    return ReadWholeFile(path);
}

int ReplaceFile(const char* path, std::string_view content) {
    if (content.size() > kLargestFile) {
        errno = EFBIG;
        return Fail(VLIBC_ERR_SHORT_WRITE);
    }
    const auto target = FollowLinks(path);
    if (!target) return Fail(VLIBC_ERR_OPEN_FAILED);
    const size_t nameAt = target->rfind('/') + 1;
    const char* const name = target->c_str() + nameAt;
    const std::string folderPath = nameAt == 0 ? "." : target->substr(0, nameAt);
    const base::UniqueFd folder(open(folderPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) return Fail(VLIBC_ERR_OPEN_FAILED);
    struct stat old{};
    const bool exists = fstatat(folder.Get(), name, &old, AT_SYMLINK_NOFOLLOW) == 0;
    if (!exists && errno != ENOENT) return Fail(VLIBC_ERR_OPEN_FAILED);
    for (const bool nameless : {true, false}) {
        NewFile file(folder.Get(), nameless, exists ? 0600 : 0666);
        if (file && Install(file, folder.Get(), name, content, exists ? &old : nullptr)) return 0;
    }
    return Fail(VLIBC_ERR_SHORT_WRITE);
}

}  // namespace vemo::platform
