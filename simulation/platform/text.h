// Small helpers for texts.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vemo::platform {

constexpr bool IsBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// `text` without the blanks before it, after it, or both.
inline std::string_view TrimFront(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    return text;
}
inline std::string_view TrimBack(std::string_view text) {
    while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
    return text;
}
// The end first: what is left of nothing but blanks begins where the text began.
inline std::string_view Trim(std::string_view text) {
    return TrimFront(TrimBack(text));
}

// Takes the first line, its line end included, from `rest` into `line`; false when nothing is left.
inline bool NextLine(std::string_view& rest, std::string_view& line) {
    if (rest.empty()) return false;
    const size_t end = rest.find('\n');
    line = rest.substr(0, end == std::string_view::npos ? end : end + 1);
    rest.remove_prefix(line.size());
    return true;
}

// `text` with blanks for line ends and other control characters.
inline std::string OneLine(std::string_view text) {
    std::string line(text);
    for (char& c : line) {
        if (static_cast<unsigned char>(c) < ' ' || c == '\x7f') c = ' ';
    }
    return line;
}

// Keeps copies of texts, each closed by a NUL, at fixed addresses and without an allocation for each.
class TextArena {
  public:
    std::string_view Keep(std::string_view text);
    // Forgets all texts; keeps the first block for the next ones.
    void Clear();

  private:
    struct Block {
        std::unique_ptr<char[]> bytes;
        size_t size = 0;
    };
    void AddBlock(size_t atLeast);

    std::vector<Block> blocks_;
    char* next_ = nullptr;
    size_t room_ = 0;
};

}  // namespace vemo::platform
