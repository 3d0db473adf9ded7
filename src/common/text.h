// Small text helpers.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace flashcache {

inline bool StartsWith(const char* text, std::string_view prefix) noexcept {
    return std::string_view(text).starts_with(prefix);
}

// Whether both texts are there and equal.
inline bool SameText(const char* a, const char* b) noexcept {
    return a != nullptr && b != nullptr && std::string_view(a) == b;
}

inline bool Contains(const char* text, std::string_view part) noexcept {
    return std::string_view(text).find(part) != std::string_view::npos;
}

inline bool IsDigit(char character) noexcept {
    return character >= '0' && character <= '9';
}

// A text that may be NULL, for messages: spelled as printf itself would.
inline const char* TextOrNull(const char* text) noexcept {
    return text == nullptr ? "(null)" : text;
}

// The text after the last "/", the whole text when there is none; a pointer into `path`.
const char* LastComponent(const char* path) noexcept;

// printf into a text of at most size - 1 characters; a longer one is cut. Throws std::bad_alloc.
std::string FormatCut(std::size_t size, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Copies `text` into a caller's buffer of `size` bytes (above 0), cut to fit and terminated.
void CopyOut(std::string_view text, char* out, int size) noexcept;

}  // namespace flashcache
