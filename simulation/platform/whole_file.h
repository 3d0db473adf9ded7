// Whole files at a time: read into memory, replaced in one step.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace vemo::platform {

// Owns a descriptor. Closing leaves errno alone.
class UniqueFd {
  public:
    explicit UniqueFd(int fd = -1) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.Release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        Reset(other.Release());
        return *this;
    }
    ~UniqueFd() { Reset(); }

    explicit operator bool() const { return fd_ >= 0; }
    int Get() const { return fd_; }
    int Release() { return std::exchange(fd_, -1); }
    void Reset(int fd = -1) {
        const int savedErrno = errno;
        if (fd_ >= 0) close(fd_);
        errno = savedErrno;
        fd_ = fd;
    }

  private:
    int fd_;
};

// The content of a regular file of at most 64 MiB, and its status as it was before the reading.
// Nothing on failure: errno and the error slot say why.
std::optional<std::string> ReadWholeFile(const char* path, struct stat* status = nullptr);

// As ReadWholeFile, but a file that does not exist is an empty one.
std::optional<std::string> ReadFileToEdit(const char* path);

// Makes `content` the file's content, durably, or leaves the file as it was: a crash at any instant leaves
// the old or the new file. Mode and owner stay; of a symbolic link, what it leads to is replaced. 0, or -1
// with errno and the error slot set.
int ReplaceFile(const char* path, std::string_view content);

}  // namespace vemo::platform
