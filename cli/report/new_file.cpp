#include "report/new_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "base/write_all.h"
#include "support/failure.h"
#include "support/quoted.h"
#include "support/signals.h"

namespace cli {
namespace {

// NOLINTBEGIN(cppcoreguidelines-pro-type-vararg): open has no other form.

base::UniqueFd OpenNameless(const std::string& folder) {
    return base::UniqueFd(open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
}

void SyncFolder(const std::string& folder) {
    const base::UniqueFd opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    static_cast<void>(fsync(opened.Get()));
}

// NOLINTEND(cppcoreguidelines-pro-type-vararg)

bool GiveName(int file, const std::string& path) {
    return linkat(file, "", AT_FDCWD, path.c_str(), AT_EMPTY_PATH) == 0 ||
           (errno == ENOENT && linkat(AT_FDCWD, fmt::format("/proc/self/fd/{}", file).c_str(), AT_FDCWD,
                                      path.c_str(), AT_SYMLINK_FOLLOW) == 0);
}

}  // namespace

NewFile::NewFile(std::string path, bool replaces) : path_(std::move(path)), replaces_(replaces) {
    RequireFree();
    folder_ = std::filesystem::absolute(path_).parent_path();
    if (access(folder_.c_str(), W_OK | X_OK) != 0) {
        Fail(fmt::format("{}: {}", folder_, std::strerror(errno)));
    }
    file_ = OpenNameless(folder_);
    if (!file_ && errno != EOPNOTSUPP && errno != EISDIR && errno != ENOENT) {
        Fail(fmt::format("{}: {}", folder_, std::strerror(errno)));
    }
}

void NewFile::RequireFree() const {
    struct stat status{};
    if (lstat(path_.c_str(), &status) != 0) {
        return;
    }
    if (!S_ISREG(status.st_mode)) {
        throw Failure{fmt::format("{} cannot be written", path_), "what lies there is no regular file", "",
                      std::nullopt, FailureKind::kRefused};
    }
    if (!replaces_) {
        throw Failure{fmt::format("{} exists already", path_), "a report replaces no file unasked",
                      fmt::format("vemocachectl report --force {}", Quoted(path_)), std::nullopt,
                      FailureKind::kRefused};
    }
}

void NewFile::Write(std::string_view content) {
    // From here on a signal waits: only a file with a name could be left behind.
    const SignalsHeld held;
    if (!file_) {
        temporary_ = fmt::format("{}.{}.XXXXXX", path_, getpid());
        file_ = base::UniqueFd(mkstemp(temporary_.data()));
    }
    const bool isWritten = file_ && fchmod(file_.Get(), 0600) == 0 && base::WriteAll(file_.Get(), content) &&
                           fsync(file_.Get()) == 0;
    if (!isWritten) {
        const int cause = errno;
        if (!temporary_.empty()) {
            unlink(temporary_.c_str());
        }
        Fail(std::strerror(cause));
    }
    Appear();
    SyncFolder(folder_);
}

void NewFile::Appear() {
    if (!replaces_ && temporary_.empty() && GiveName(file_.Get(), path_)) {
        return;
    }
    if (temporary_.empty() && replaces_) {
        temporary_ = fmt::format("{}.{}.new", path_, getpid());
        if (!GiveName(file_.Get(), temporary_)) {
            Fail(std::strerror(errno));
        }
    }
    const bool isThere = !temporary_.empty() && (replaces_ ? std::rename(temporary_.c_str(), path_.c_str())
                                                           : link(temporary_.c_str(), path_.c_str())) == 0;
    const int cause = errno;
    if (!temporary_.empty() && !(isThere && replaces_)) {
        unlink(temporary_.c_str());
    }
    if (!isThere) {
        Fail(std::strerror(cause));
    }
}

void NewFile::Fail(const std::string& why) const {
    throw Failure{fmt::format("{} could not be written", path_), why, ""};
}

}  // namespace cli
