// Foreign text in messages.
#pragma once

#include <string>
#include <string_view>

namespace sizing {

// In quotes, on one line, printable and cut: a trace may hold anything, and a terminal obeys some of it.
inline std::string Quote(std::string_view text) {
    constexpr std::size_t kMost = 60;
    constexpr const char* kDigits = "0123456789abcdef";
    std::string quoted = "'";
    for (const char character : text.substr(0, kMost)) {
        const auto code = static_cast<unsigned char>(character);
        if (code >= 0x20 && code < 0x7f) {
            quoted += character;
        } else {
            quoted += {'\\', 'x', kDigits[code >> 4U], kDigits[code & 0xfU]};
        }
    }
    return quoted + (text.size() > kMost ? "...'" : "'");
}

}  // namespace sizing
