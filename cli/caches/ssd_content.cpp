#include "caches/ssd_content.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

#include "base/ssd_layout.h"
#include "base/unique_fd.h"

namespace cli {
namespace {

// A text of the superblock, which may fill its field.
template <std::size_t Size>
std::string Text(const char (&field)[Size]) {
    return std::string(field, strnlen(field, Size));
}

bool IsPlausible(const base::Superblock& superblock) {
    const bool isKnown =
        superblock.version == base::kVersionOriginal || superblock.version == base::kVersionNew;
    return isKnown && std::memcmp(superblock.magic, base::kCacheMagic, sizeof superblock.magic) == 0 &&
           superblock.blockSize > 0 && superblock.slots <= UINT32_MAX;
}

std::optional<std::uint64_t> CountDirty(int device, std::uint64_t slots) {
    std::vector<base::MapEntry> entries(1 << 17);
    std::uint64_t dirty = 0;
    for (std::uint64_t done = 0; done < slots;) {
        const std::size_t wanted = std::min<std::uint64_t>(entries.size(), slots - done);
        const std::size_t bytes = wanted * sizeof(base::MapEntry);
        const auto offset = static_cast<off_t>(base::kMapOffset + done * sizeof(base::MapEntry));
        if (pread(device, entries.data(), bytes, offset) != static_cast<ssize_t>(bytes)) {
            return std::nullopt;
        }
        constexpr base::MapEntry kBoth = base::kSlotUsed | base::kSlotDirty;
        const auto isDirty = [](base::MapEntry entry) { return (entry & kBoth) == kBoth; };
        dirty += static_cast<std::uint64_t>(
            std::count_if(entries.begin(), entries.begin() + static_cast<std::ptrdiff_t>(wanted), isDirty));
        done += wanted;
    }
    return dirty;
}

}  // namespace

std::optional<SsdContent> ReadSsdContent(const std::string& ssd, std::uint64_t mostBlocks) {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): open has no other form.
    const base::UniqueFd device(open(ssd.c_str(), O_RDONLY | O_CLOEXEC));
    base::Superblock superblock;
    if (!device || pread(device.Get(), &superblock, sizeof superblock, 0) != sizeof superblock ||
        !IsPlausible(superblock)) {
        return std::nullopt;
    }
    SsdContent content;
    content.ssd = Text(superblock.ssd);
    content.volume = Text(superblock.space);
    content.mode = superblock.mode == base::WriteMode::kThru     ? FLASHCACHE_WRITE_THRU
                   : superblock.mode == base::WriteMode::kAround ? FLASHCACHE_WRITE_AROUND
                                                                 : FLASHCACHE_WRITE_BACK;
    content.format =
        superblock.version == base::kVersionNew ? FLASHCACHE_VERSION_NEW : FLASHCACHE_VERSION_ORIGINAL;
    content.blockSize = superblock.blockSize;
    content.blocks = superblock.slots;
    content.inOrder = superblock.clean != 0;
    if (superblock.slots <= mostBlocks) {
        content.dirtyBlocks = CountDirty(device.Get(), superblock.slots);
    }
    return content;
}

bool IsBlank(const std::string& ssd) {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): open has no other form.
    const base::UniqueFd device(open(ssd.c_str(), O_RDONLY | O_CLOEXEC));
    std::vector<char> start(base::kMapOffset);
    return device &&
           pread(device.Get(), start.data(), start.size(), 0) == static_cast<ssize_t>(start.size()) &&
           std::ranges::all_of(start, [](char byte) { return byte == 0; });
}

}  // namespace cli
