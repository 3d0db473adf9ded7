// The cache devices under /dev/mapper.
#pragma once

#include <glob.h>

#include <cerrno>
#include <cstddef>

namespace flashcache {

inline constexpr const char* kCacheDevPattern = "/dev/mapper/cachedev*";

// The paths of the cache devices, sorted by name.
class CacheDevices {
  public:
    // flags: glob's.
    explicit CacheDevices(int flags) noexcept : result_(glob(kCacheDevPattern, flags, nullptr, &paths_)) {}
    CacheDevices(const CacheDevices&) = delete;
    CacheDevices& operator=(const CacheDevices&) = delete;
    ~CacheDevices() {
        const int callersErrno = errno;
        globfree(&paths_);
        errno = callersErrno;
    }

    // What glob returned: 0, GLOB_NOMATCH, GLOB_ABORTED, GLOB_NOSPACE, ...
    int result() const noexcept { return result_; }
    std::size_t size() const noexcept { return paths_.gl_pathc; }
    const char* operator[](std::size_t index) const noexcept { return paths_.gl_pathv[index]; }

  private:
    glob_t paths_{};
    int result_;  // after paths_, which its initialiser fills
};

}  // namespace flashcache
