// What the kernel's counters file says.

#include <cinttypes>
#include <cstdio>

#include "status/status.h"

namespace flashcache {
namespace {

// Each "%*[^a-zA-Z]" passes over a value and what separates it from the next name.
constexpr const char* kIoCountsFormat = "reads=%" SCNu64 "%*[^a-zA-Z]writes=%" SCNu64;

constexpr const char* kWriteBackFormat =
    "read_hits=%" SCNu64
    "%*[^a-zA-Z]read_hit_percent=%*[^a-zA-Z]"
    "write_hits=%" SCNu64
    "%*[^a-zA-Z]write_hit_percent=%*[^a-zA-Z]"
    "write_miss_ssd=%" SCNu64
    "%*[^a-zA-Z]dirty_write_hits=%*[^a-zA-Z]dirty_write_hit_percent=%*[^a-zA-Z]"
    "replacement=%*[^a-zA-Z]write_replacement=%*[^a-zA-Z]"
    "write_invalidates=%*[^a-zA-Z]read_invalidates=%*[^a-zA-Z]"
    "pending_enqueues=%*[^a-zA-Z]pending_inval=%*[^a-zA-Z]"
    "metadata_dirties=%*[^a-zA-Z]metadata_cleans=%*[^a-zA-Z]"
    "metadata_batch=%*[^a-zA-Z]metadata_ssd_writes=%*[^a-zA-Z]"
    "cleanings=%*[^a-zA-Z]fallow_cleanings=%*[^a-zA-Z]"
    "no_room=%*[^a-zA-Z]front_merge=%*[^a-zA-Z]back_merge=%*[^a-zA-Z]"
    "disk_reads=%*[^a-zA-Z]disk_writes=%*[^a-zA-Z]ssd_reads=%*[^a-zA-Z]ssd_writes=%*[^a-zA-Z]"
    "uncached_reads=%*[^a-zA-Z]uncached_writes=%*[^a-zA-Z]uncached_IO_requeue=%*[^a-zA-Z]"
    "uncached_sequential_reads=%" SCNu64 "%*[^a-zA-Z]uncached_sequential_writes=%" SCNu64;

constexpr const char* kWriteAroundFormat =
    "read_hits=%" SCNu64
    "%*[^a-zA-Z]read_hit_percent=%*[^a-zA-Z]"
    "replacement=%*[^a-zA-Z]read_invalidates=%*[^a-zA-Z]"
    "pending_enqueues=%*[^a-zA-Z]pending_inval=%*[^a-zA-Z]no_room=%*[^a-zA-Z]"
    "disk_reads=%*[^a-zA-Z]disk_writes=%*[^a-zA-Z]ssd_reads=%*[^a-zA-Z]ssd_writes=%*[^a-zA-Z]"
    "uncached_reads=%*[^a-zA-Z]uncached_writes=%*[^a-zA-Z]uncached_IO_requeue=%*[^a-zA-Z]"
    "uncached_sequential_reads=%" SCNu64 "%*[^a-zA-Z]uncached_sequential_writes=%" SCNu64;

uint32_t Percent(uint64_t part, uint64_t whole) noexcept {
    return whole == 0 ? 0 : static_cast<uint32_t>(part * 100 / whole);
}

}  // namespace

bool HasCounters(FLASHCACHE_WRITE_MODE writeMode) noexcept {
    return writeMode == FLASHCACHE_WRITE_BACK || writeMode == FLASHCACHE_WRITE_AROUND ||
           writeMode == FLASHCACHE_WRITE_BACK_BYPASS || writeMode == FLASHCACHE_WRITE_BACK_CRASH;
}

// A line such as "reads=1024 writes=2048".
bool ParseIoCounts(const char* line, FLASHCACHE_COUNT_STAT& counters) noexcept {
    return std::sscanf(line, kIoCountsFormat, &counters.Reads, &counters.Writes) == 2;
}

// A line such as "read_hits=512 read_hit_percent=50 write_hits=... uncached_sequential_writes=0".
bool ParseHitCounts(const char* line, FLASHCACHE_WRITE_MODE writeMode,
                    FLASHCACHE_COUNT_STAT& counters) noexcept {
    if (writeMode == FLASHCACHE_WRITE_AROUND) {
        return std::sscanf(line, kWriteAroundFormat, &counters.ReadHits, &counters.UncachedSeqReads,
                           &counters.UncachedSeqWrites) == 3;
    }
    return std::sscanf(line, kWriteBackFormat, &counters.ReadHits, &counters.WriteHits,
                       &counters.WriteMissSSD, &counters.UncachedSeqReads, &counters.UncachedSeqWrites) == 5;
}

void ComputeHitPercents(FLASHCACHE_COUNT_STAT& counters) noexcept {
    counters.ReadHitPercent = Percent(counters.ReadHits, counters.Reads - counters.UncachedSeqReads);
    counters.WriteHitPercent =
        Percent(counters.WriteHits + counters.WriteMissSSD, counters.Writes - counters.UncachedSeqWrites);
}

}  // namespace flashcache
