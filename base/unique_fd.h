// The owner of a file descriptor.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace base {

// Owns one file descriptor, -1 for none. Closing it leaves errno alone.
class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) noexcept : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.Release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { Reset(); }

    [[nodiscard]] int Get() const noexcept { return fd_; }
    explicit operator bool() const noexcept { return fd_ >= 0; }
    // Hands the descriptor over to the caller.
    int Release() noexcept { return std::exchange(fd_, -1); }
    void Reset() noexcept {
        const int callersErrno = errno;
        if (fd_ >= 0) {
            close(Release());
        }
        errno = callersErrno;
    }

  private:
    int fd_ = -1;
};

}  // namespace base
