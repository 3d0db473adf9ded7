#include "common/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "common/handle.h"
#include "common/text.h"
#include "platform/vemocore.h"

namespace flashcache {

void LogMessage::operator()(const char* format, ...) const noexcept {
    Text text;
    errno = errno_;
    va_list arguments;
    va_start(arguments, format);
    if (vasprintf(text.address(), format, arguments) < 0) {
        text.release();
    }
    va_end(arguments);
    // Out of memory, the bare format still tells what happened.
    const char* message = text ? text.get() : format;
    const char* file = LastComponent(where_.file_name());
    const auto line = static_cast<int>(where_.line());
    if (tail_ == Tail::kPlatformError) {
        syslog(priority_, "%s:%d %s[0x%04X %s:%d]", file, line, message, static_cast<unsigned>(VLIBCErrGet()),
               VLIBCErrorGetFile(), VLIBCErrorGetLine());
    } else {
        syslog(priority_, "%s:%d %s", file, line, message);
    }
    errno = errno_;
}

void SetError(int code, Where where) noexcept {
    VLIBCErrSetEx(code, LastComponent(where.file_name()), static_cast<int>(where.line()));
}

}  // namespace flashcache
