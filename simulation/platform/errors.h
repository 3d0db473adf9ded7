// How every call of the platform fails: a code in the thread's error slot, and the call's failure result.
#pragma once

#include <cerrno>
#include <new>
#include <source_location>
#include <type_traits>

#include "platform/vemocore.h"

namespace vemo::platform {

// Beside the codes that callers know.
inline constexpr int kErrOutOfMemory = 0x0100;
inline constexpr int kErrLocked = 0x0200;

// Records `code` and the caller's place in the error slot; errno stays. Always -1, for "return Fail(...)".
inline int Fail(int code, const std::source_location& where = std::source_location::current()) noexcept {
    const int savedErrno = errno;
    const char* file = where.file_name();
    for (const char* at = file; *at != '\0'; ++at) {
        if (*at == '/') file = at + 1;
    }
    VLIBCErrSetEx(code, file, static_cast<int>(where.line()));
    errno = savedErrno;
    return -1;
}

// Runs the body of a call: nothing that it throws leaves the call, which fails instead.
template <typename Body>
auto Guard(std::invoke_result_t<Body> failure, const Body& body,
           const std::source_location& where = std::source_location::current()) noexcept {
    try {
        return body();
    } catch (...) {  // all that our code can throw comes from a failed allocation
        errno = ENOMEM;
        Fail(kErrOutOfMemory, where);
        return failure;
    }
}

}  // namespace vemo::platform
