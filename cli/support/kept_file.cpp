#include "support/kept_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "base/unique_fd.h"
#include "base/write_all.h"
#include "support/failure.h"

namespace cli {
namespace {

// NOLINTBEGIN(cppcoreguidelines-pro-type-vararg): open has no other form.

bool WriteWhole(const std::string& path, const std::string& text, mode_t mode) {
    const base::UniqueFd file(
        open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, mode));
    // Whatever the umask is.
    return file && fchmod(file.Get(), mode) == 0 && base::WriteAll(file.Get(), text) &&
           fsync(file.Get()) == 0;
}

bool SyncFolder(const std::filesystem::path& folder) {
    const base::UniqueFd opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return opened && fsync(opened.Get()) == 0;
}

// NOLINTEND(cppcoreguidelines-pro-type-vararg)

}  // namespace

bool WriteKeptFile(const std::string& path, const std::string& text, mode_t mode) {
    const auto folder = std::filesystem::absolute(path).parent_path();
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    const std::string fresh = path + ".new";
    if (error || !WriteWhole(fresh, text, mode) || std::rename(fresh.c_str(), path.c_str()) != 0) {
        const int cause = error ? error.value() : errno;
        std::remove(fresh.c_str());
        errno = cause;
        return false;
    }
    return SyncFolder(folder);
}

std::string WhyNoFile(const std::string& path) {
    std::error_code error;
    const auto folder = std::filesystem::absolute(path, error).parent_path();
    return std::filesystem::is_directory(folder, error) ? ""
                                                        : fmt::format("{} is no folder", folder.string());
}

void WriteFileForAll(const std::string& path, const std::string& text, const std::string& what) {
    constexpr mode_t kReadableByAll = 0644;
    if (!WriteKeptFile(path, text, kReadableByAll)) {
        throw Failure{fmt::format("{} could not be written to {}", what, path), std::strerror(errno),
                      "see that its folder is there, can be written and has room"};
    }
}

}  // namespace cli
