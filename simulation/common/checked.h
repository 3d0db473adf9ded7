// System calls whose failure is an exception.
#pragma once

#include <cerrno>
#include <string>
#include <system_error>

namespace simulation {

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
