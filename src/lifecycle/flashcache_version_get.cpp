// Which cache version an SSD's metadata was written in.

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>

#include "base/unique_fd.h"
#include "common/handle.h"
#include "common/log.h"
#include "config/config.h"

namespace flashcache {
namespace {

constexpr off_t kVersionOffset = 296;  // in the superblock, at the start of the SSD
constexpr uint32_t kOriginalSuperblock = 2;
constexpr uint32_t kNewSuperblock = 10;

// The superblock's version word, little-endian; bytes that cannot be read count as 0.
uint32_t ReadVersionWord(const base::UniqueFd& device) noexcept {
    unsigned char bytes[4] = {};
    if (read(device.Get(), bytes, sizeof bytes) < 0) {
        LogError()("Read superblock failed");
    }
    return bytes[0] | static_cast<uint32_t>(bytes[1]) << 8U | static_cast<uint32_t>(bytes[2]) << 16U |
           static_cast<uint32_t>(bytes[3]) << 24U;
}

FLASHCACHE_VERSION VersionOfWord(uint32_t word) noexcept {
    switch (word) {
        case kNewSuperblock:
            return FLASHCACHE_VERSION_NEW;
        case kOriginalSuperblock:
            return FLASHCACHE_VERSION_ORIGINAL;
        default:
            return FLASHCACHE_VERSION_UNKNOWN;
    }
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

FLASHCACHE_VERSION VEMOFlashCacheVersionGet(const char* ssdPath) {
    if (!IsDevicePath(ssdPath)) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    const base::UniqueFd device(open(ssdPath, O_RDONLY | O_CLOEXEC));
    if (!device) {
        __extension__ LogError()("Can't open device [%s], error=%m", ssdPath);
        return -1;
    }
    if (lseek(device.Get(), kVersionOffset, SEEK_SET) < 0) {
        LogError()("Lseek failed");
        return -1;
    }
    const uint32_t word = ReadVersionWord(device);
    const FLASHCACHE_VERSION version = VersionOfWord(word);
    LogDebug()("Read %s cache version=%d ret=%d\n", ssdPath, static_cast<int>(word), version);
    return version;
}
