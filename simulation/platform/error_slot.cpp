#include <algorithm>
#include <cstring>

#include "platform/vemocore.h"

namespace {

// The file's name is copied: the caller's text may be gone when the slot is read.
struct ErrorSlot {
    int code;
    int line;
    char file[128];
};

thread_local ErrorSlot errorSlot;

}  // namespace

void VLIBCErrSetEx(int code, const char* file, int line) {
    const size_t length = file == nullptr ? 0 : strnlen(file, sizeof errorSlot.file - 1);
    if (length > 0) std::memmove(errorSlot.file, file, length);  // may be the slot's own text
    errorSlot.file[length] = '\0';
    errorSlot.code = code;
    errorSlot.line = line;
}

int VLIBCErrGet() {
    return errorSlot.code;
}

const char* VLIBCErrorGetFile() {
    return errorSlot.file;
}

int VLIBCErrorGetLine() {
    return errorSlot.line;
}
