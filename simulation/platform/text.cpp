#include "simulation/platform/text.h"

#include <algorithm>
#include <cstring>

#include "simulation/platform/errors.h"

namespace vemo::platform {

std::string_view TextArena::Keep(std::string_view text) {
    if (text.size() + 1 > room_) AddBlock(text.size() + 1);
    char* const copy = next_;
    std::copy(text.begin(), text.end(), copy);
    copy[text.size()] = '\0';
    next_ += text.size() + 1;
    room_ -= text.size() + 1;
    return {copy, text.size()};
}

void TextArena::AddBlock(size_t atLeast) {
    constexpr size_t kSmallest = 2048;
    constexpr size_t kDoublings = 6;
    const size_t size = std::max(atLeast, kSmallest << std::min(blocks_.size(), kDoublings));
    blocks_.push_back({std::make_unique_for_overwrite<char[]>(size), size});
    next_ = blocks_.back().bytes.get();
    room_ = size;
}

void TextArena::Clear() {
    if (blocks_.empty()) return;
    blocks_.resize(1);
    next_ = blocks_.front().bytes.get();
    room_ = blocks_.front().size;
}

}  // namespace vemo::platform

int VLIBCStrTrimSpace(char* text, int /*flag*/) {
    using namespace vemo::platform;
    if (text == nullptr) return Fail(VLIBC_ERR_BAD_PARAMETER);
    const std::string_view trimmed = Trim(text);
    std::memmove(text, trimmed.data(), trimmed.size());
    text[trimmed.size()] = '\0';
    return 0;
}
