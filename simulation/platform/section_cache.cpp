#include "simulation/platform/section_cache.h"

#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <ctime>
#include <limits>
#include <memory>
#include <string>

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

int64_t Now() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);  // the clock that stamps files
    return Nanoseconds(now);
}

// How far apart two writes must be to leave different stamps.
int64_t GrainOf(const struct stat& status) {
    timespec tick{};
    clock_getres(CLOCK_REALTIME_COARSE, &tick);
    const bool wholeSeconds = status.st_ctim.tv_nsec == 0;  // perhaps a file system that keeps no more
    return wholeSeconds ? 2'000'000'000 : Nanoseconds(tick);
}

// A file that is written twice within one grain of the clock looks the same after both: a stamp proves
// nothing about a file that was read within a grain of it. Until when it proves that the file is still what
// was read: a stamp of the future, left by a clock that was set back, until the clock comes near it again.
int64_t ProofEnd(const struct stat& status, int64_t readAt) {
    constexpr int64_t kFarAhead = 10'000'000'000;  // no finer clock than ours is that far ahead of it
    const int64_t stamp = Nanoseconds(status.st_ctim);
    if (stamp + GrainOf(status) < readAt) return std::numeric_limits<int64_t>::max();
    return readAt < stamp - kFarAhead ? stamp - kFarAhead : 0;
}

// Lets the clock leave a stamp behind, if that is a matter of a few ticks.
void OutwaitStamp(const struct stat& status) {
    constexpr int64_t kLongest = 50'000'000;
    const int64_t grain = GrainOf(status);
    const int64_t left = Nanoseconds(status.st_ctim) + grain - Now();
    if (left < 0 || left > kLongest) return;
    const timespec pause{0, static_cast<long>(left + grain)};
    nanosleep(&pause, nullptr);
}

struct ParsedFile {
    std::string path;
    std::unique_ptr<const SectionDocument> document;
    Identity identity{};
    int64_t provenUntil = 0;
    size_t reread = 0;  // bytes that were read again for want of proof since the stamp changed
};

thread_local ParsedFile parsed;

// Whether what was parsed last is what a reading of the file would give.
bool IsUpToDate(const char* file) {
    constexpr size_t kMostReread = 256 << 10;  // less is read more quickly than the clock ticks
    struct stat status{};
    const bool same =
        parsed.path == file && stat(file, &status) == 0 && parsed.identity == IdentityOf(status);
    if (same && Now() < parsed.provenUntil) return true;
    if (!same) parsed.reread = 0;
    if (parsed.reread > kMostReread) OutwaitStamp(status);
    return false;
}

}  // namespace

const SectionDocument* LoadSections(const char* file) {
    if (IsUpToDate(file)) return parsed.document.get();
    struct stat status{};
    const int64_t readAt = Now();
    auto text = ReadWholeFile(file, &status);
    if (!text) return nullptr;
    const bool complete = text->size() == static_cast<size_t>(status.st_size);
    parsed.provenUntil = 0;
    parsed.reread += text->size();
    if (!parsed.document || parsed.document->Text() != *text) {
        parsed.document = std::make_unique<const SectionDocument>(std::move(*text));
    }
    parsed.path = file;
    parsed.identity = IdentityOf(status);
    parsed.provenUntil = complete ? ProofEnd(status, readAt) : 0;
    return parsed.document.get();
}

}  // namespace vemo::platform
