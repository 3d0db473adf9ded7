// Writing the whole of a text.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string_view>

namespace base {

// Whether all of it was written; if not, errno says why.
inline bool WriteAll(int fd, std::string_view text) noexcept {
    while (!text.empty()) {
        const ssize_t count = write(fd, text.data(), text.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

}  // namespace base
