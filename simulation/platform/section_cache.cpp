#include "simulation/platform/section_cache.h"

#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <ctime>
#include <memory>

#include "simulation/platform/errors.h"
#include "simulation/platform/whole_file.h"

namespace vemo::platform {

namespace {

// What changes whenever a file is written or another takes its place.
using Identity = std::array<int64_t, 7>;

Identity IdentityOf(const struct stat& status) {
    return {static_cast<int64_t>(status.st_dev),
            static_cast<int64_t>(status.st_ino),
            status.st_size,
            status.st_mtim.tv_sec,
            status.st_mtim.tv_nsec,
            status.st_ctim.tv_sec,
            status.st_ctim.tv_nsec};
}

int64_t Nanoseconds(const timespec& time) {
    return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

// A file that is written twice within one grain of the clock looks the same after both. A stamp therefore
// proves nothing unless it was already older than the grain when the file was read.
bool IsProof(const struct stat& status, const timespec& readAt) {
    timespec tick{};
    clock_getres(CLOCK_REALTIME_COARSE, &tick);
    const bool wholeSeconds = status.st_ctim.tv_nsec == 0;  // perhaps a file system that keeps no more
    const int64_t grain = wholeSeconds ? 2'000'000'000 : Nanoseconds(tick);
    return Nanoseconds(status.st_ctim) + grain < Nanoseconds(readAt);
}

struct ParsedFile {
    std::unique_ptr<const SectionDocument> document;
    Identity identity{};
    bool proven = false;
};

thread_local ParsedFile parsed;

}  // namespace

const SectionDocument* LoadSections(const char* file) {
    struct stat status{};
    if (stat(file, &status) != 0) {
        Fail(VLIBC_ERR_OPEN_FAILED);
        return nullptr;
    }
    if (parsed.proven && parsed.identity == IdentityOf(status)) return parsed.document.get();
    timespec readAt{};
    clock_gettime(CLOCK_REALTIME_COARSE, &readAt);  // the clock that stamps files
    auto text = ReadWholeFile(file, &status);
    if (!text) return nullptr;
    parsed.proven = false;
    const bool complete = text->size() == static_cast<size_t>(status.st_size);
    parsed.document = std::make_unique<const SectionDocument>(std::move(*text));
    parsed.identity = IdentityOf(status);
    parsed.proven = complete && IsProof(status, readAt);
    return parsed.document.get();
}

}  // namespace vemo::platform
