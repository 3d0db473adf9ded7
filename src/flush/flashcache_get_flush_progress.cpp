// How far the kernel has come with writing dirty blocks back.

#include <cstdint>
#include <cstdio>
#include <utility>

#include "common/guard.h"
#include "common/handle.h"
#include "common/log.h"
#include "common/text.h"
#include "config/config.h"
#include "flush/flush.h"

namespace flashcache {
namespace {

constexpr const char* kProgressEntry = "flashcache_progress";
constexpr unsigned kRemovalFlush = 0;
constexpr unsigned kOtherFlush = 1;

// Whether the query is about the kind of flush that may be running now.
bool Applies(const char* ssdName, unsigned progressState) {
    const std::string ssdPath = FormatCut(64, "/dev/%s", ssdName);
    const bool normal =
        VEMOFlashCacheIsRemoveInFlushState(ssdPath.c_str(), FLASHCACHE_FLUSH_STATE_NORMAL) == 1;
    return normal == (progressState == kOtherFlush);
}

bool ReadCounts(const char* ssdName, const char* spaceName, FlushCounts& counts,
                Where where = Where::current()) {
    if (FlashCacheFlushProgressRead(ssdName, spaceName, &counts) == 0) {
        return true;
    }
    LogError(where)("Can't get flush information");
    return false;
}

}  // namespace

// A text such as "initial_num_of_dirty=200 remaining_num_of_dirty=50\n". A number that were cut, to 32 bits
// or to its first digits, could tell that nothing is left; eighteen digits always fit a long.
bool ParseFlushCounts(const char* text, FlushCounts& counts) noexcept {
    long initial = 0;
    long remaining = 0;
    int end = 0;
    if (std::sscanf(text, "initial_num_of_dirty=%18ld remaining_num_of_dirty=%18ld%n", &initial, &remaining,
                    &end) != 2 ||
        IsDigit(text[end]) || !std::in_range<int>(initial) || !std::in_range<int>(remaining)) {
        return false;
    }
    counts = {static_cast<int>(initial), static_cast<int>(remaining)};
    return true;
}

float FlushPercent(const FlushCounts& counts) noexcept {
    if (counts.initial == -1) {
        return 0.0F;
    }
    if (counts.initial == 0) {
        return 100.0F;
    }
    // Wraps like the kernel's own 32-bit counters, however wild the two are.
    const auto done =
        static_cast<int32_t>(static_cast<uint32_t>(counts.initial) - static_cast<uint32_t>(counts.remaining));
    // NOLINTNEXTLINE(clang-analyzer-core.DivideZero): it loses the test above on the way to the float.
    return 100.0F * (static_cast<float>(done) / static_cast<float>(counts.initial));
}

int FlashCacheFlushProgressRead(const char* ssdName, const char* spaceName, FlushCounts* counts) {
    if (ssdName == nullptr || spaceName == nullptr || counts == nullptr) {
        LogError()("Incorrect Parameter");
        return -1;
    }
    const File file(std::fopen(ProcEntryPath(512, ssdName, spaceName, kProgressEntry).c_str(), "re"));
    if (!file) {
        return -1;
    }
    char text[1024] = "";
    text[std::fread(text, 1, sizeof text - 1, file.get())] = '\0';
    if (!ParseFlushCounts(text, *counts)) {
        LogError()("Parse flush progress fail");
        return -1;
    }
    return 0;
}

}  // namespace flashcache

using namespace flashcache;

float VEMOFlashCacheGetFlushProgress(const char* ssdName, const char* spaceName, unsigned int progressState) {
    if (ssdName == nullptr || spaceName == nullptr) {
        LogError()("Incorrect Parameter");
        return -1.0F;
    }
    if (progressState != kRemovalFlush && progressState != kOtherFlush) {
        LogError()("Incorrect progressState Parameter");
        return -1.0F;
    }
    return Guarded(-1.0F, [&] {
        if (!Applies(ssdName, progressState)) {
            return 0.0F;
        }
        FlushCounts counts;
        return ReadCounts(ssdName, spaceName, counts) ? FlushPercent(counts) : -1.0F;
    });
}

int VEMOFlashCacheDirtyBlockGet(const char* ssdName, const char* spaceName) {
    if (ssdName == nullptr || spaceName == nullptr) {
        LogError()("Incorrect Parameter");
        return -1;
    }
    return Guarded(-1, [&] {
        FlushCounts counts;
        return ReadCounts(ssdName, spaceName, counts) ? counts.remaining : -1;
    });
}
