// Pipes.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include "base/unique_fd.h"

namespace base {

// The two ends of a pipe, neither of which a program that is run inherits.
struct Pipe {
    UniqueFd read;
    UniqueFd write;
};

// Both ends, or none, with errno.
inline Pipe MakePipe() noexcept {
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return {};
    }
    return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

}  // namespace base
