#pragma once

#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace simulation {

// Owns one file descriptor. Closing it leaves errno alone.
class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { Reset(); }

    int Get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    // Hands the descriptor over to the caller.
    int Release() { return std::exchange(fd_, -1); }
    void Reset() {
        const int savedErrno = errno;
        if (fd_ >= 0) {
            close(Release());
        }
        errno = savedErrno;
    }

  private:
    int fd_ = -1;
};

// The present errno as an exception that says what was being done.
[[noreturn]] inline void ThrowErrno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// Hands a system call's result on unless it is negative, which throws.
template <typename Result>
Result Checked(Result result, const std::string& what) {
    if (result < 0) {
        ThrowErrno(what);
    }
    return result;
}

}  // namespace simulation
