// What every target shares: it is given bytes, and ends the program where a promise does not hold.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "base/unique_fd.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

inline std::string_view TextOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

inline void Require(bool holds, const char* promise) {
    if (!holds) {
        std::fprintf(stderr, "broken promise: %s\n", promise);
        std::abort();
    }
}

// A file without a name that holds these bytes, for what reads by path.
class MemoryFile {
  public:
    explicit MemoryFile(std::string_view content) : fd_(memfd_create("input", MFD_CLOEXEC)) {
        Require(write(fd_.Get(), content.data(), content.size()) == static_cast<ssize_t>(content.size()),
                "the input can be kept");
    }
    [[nodiscard]] std::string Path() const { return "/proc/self/fd/" + std::to_string(fd_.Get()); }

  private:
    base::UniqueFd fd_;
};

}  // namespace fuzz
