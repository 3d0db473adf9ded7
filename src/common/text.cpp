#include "common/text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace flashcache {

const char* LastComponent(const char* path) noexcept {
    const char* slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

std::string FormatCut(std::size_t size, const char* format, ...) {
    std::string text(size, '\0');
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    text.resize(std::min(static_cast<std::size_t>(std::max(length, 0)), size - 1));
    return text;
}

void CopyOut(std::string_view text, char* out, int size) noexcept {
    const std::size_t length = std::min(text.size(), static_cast<std::size_t>(size) - 1);
    std::memcpy(out, text.data(), length);
    out[length] = '\0';
}

}  // namespace flashcache
