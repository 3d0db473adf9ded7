// Reports to the system log and to the platform's error slot.
#pragma once

#include <syslog.h>

#include <cerrno>
#include <source_location>

namespace flashcache {

using Where = std::source_location;

// One message to the system log: "<file>:<line> <text>". The file and line are the caller's own.
// Keeps errno, and "%m" shows the errno that the caller had before the arguments were evaluated. (A text
// with "%m" stands behind __extension__, since g++ knows it as an extension only.)
class LogMessage {
  public:
    enum class Tail { kNone, kPlatformError };

    LogMessage(int priority, Tail tail, Where where) noexcept
        : priority_(priority), tail_(tail), where_(where), errno_(errno) {}

    void operator()(const char* format, ...) const noexcept __attribute__((format(printf, 2, 3)));

  private:
    int priority_;
    Tail tail_;
    Where where_;
    int errno_;
};

// Usage: LogError()("Failed to open %s", path);
inline LogMessage LogError(Where where = Where::current()) noexcept {
    return {LOG_ERR, LogMessage::Tail::kNone, where};
}

// The same, closed by the platform's last error as "[0x%04X %s:%d]"; a blank before it is the text's own.
inline LogMessage LogPlatformError(Where where = Where::current()) noexcept {
    return {LOG_ERR, LogMessage::Tail::kPlatformError, where};
}

inline LogMessage LogDebug(Where where = Where::current()) noexcept {
    return {LOG_DEBUG, LogMessage::Tail::kNone, where};
}

// Records `code` in the platform's error slot, with the caller's own file and line.
void SetError(int code, Where where = Where::current()) noexcept;

}  // namespace flashcache
