// How this room fails.
#pragma once

#include <stdexcept>
#include <string>

namespace sizing {

// what() says what failed. `next` is a command to paste, or empty.
struct Failure : std::runtime_error {
    Failure(const std::string& what, std::string reason, std::string command)
        : std::runtime_error(what), why(std::move(reason)), next(std::move(command)) {}

    std::string why;
    std::string next;
};

}  // namespace sizing
