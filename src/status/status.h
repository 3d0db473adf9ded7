// Status of the live caches: what other modules use beyond the public header.
#pragma once

#include <cstddef>

#include "common/handle.h"
#include "common/log.h"
#include "vemoflashcache.h"

namespace flashcache {

inline void FreeStatList(FLASHCACHE_STAT* list) noexcept {
    VEMOFlashCacheStatFree(&list);
}

using StatList = Handle<FLASHCACHE_STAT, FreeStatList>;

// The status of the live cache on `cacheDevPath`. Returns 0, or -1 with 0x0600 when there is none, which is
// logged under the caller's own file and line.
int GetCacheStatus(const char* cacheDevPath, StatList& status, Where where = Where::current()) noexcept;

// Adds to *sum what `add` makes of each live cache that `search` selects (NULL: all). Returns 0, or -1:
// 0x0D00 without sum; no status (logged under the caller's own file and line); a cache that `add` refused.
int SumOverCaches(const FLASHCACHE_STAT_SEARCH* search, uint64_t* sum,
                  bool (*add)(const FLASHCACHE_STAT& cache, uint64_t& sum),
                  Where where = Where::current()) noexcept;

// Describes one cache device. Returns 1 and a record that the caller releases, 0 when the device does not
// exist or has no table, -1 on failure. Throws std::bad_alloc.
int FlashCacheStatCreate(const char* cacheDevPath, FLASHCACHE_STAT** out);

// Fills `record` from the table of the device. Returns 1, 0 for an empty table, -1 on failure.
int FlashCacheDmTableParse(const char* cacheDevPath, FLASHCACHE_STAT* record);

// The fields of a FLASHCACHE_STAT that come as texts.
enum class StatField {
    kSSDDevPath,
    kSpacePath,
    kTotalBlocks,
    kCachedBlocks,
    kWriteMode,
    kReclaimPolicy,
    kFallowDelay,
    kDirtyThreshPct,
    kBlockSizeKB
};

// Converts `text` into one field. Returns 0, or -1 for a missing record or text. Throws std::bad_alloc.
int FlashCacheStatFieldSet(FLASHCACHE_STAT* record, StatField field, const char* text);

// ---- Pure parsers ----

// What a device-mapper table shows of a cache; texts are empty where the table has none.
struct DmTable {
    static constexpr std::size_t kFieldSize = 128;
    char ssdDevPath[kFieldSize + 1] = "";
    char spacePath[kFieldSize + 1] = "";
    char writeMode[kFieldSize + 1] = "";
    char blockSizeKb[kFieldSize + 1] = "";
    char totalBlocks[kFieldSize + 1] = "";
    char cachedBlocks[kFieldSize + 1] = "";
    int supportPin = 0;
};

// Takes what one line of the table says.
void ParseDmTableLine(const char* line, DmTable& table) noexcept;

// Converts `text` into one field of `record`. Returns false when the text is none of the field's known
// values; the field then holds -1. Throws std::bad_alloc.
bool ConvertStatField(FLASHCACHE_STAT& record, StatField field, const char* text);

// Whether caches of this mode have counters that we read.
bool HasCounters(FLASHCACHE_WRITE_MODE writeMode) noexcept;

// The two lines of a cache's counters file. Each returns whether the line holds all that is expected.
bool ParseIoCounts(const char* line, FLASHCACHE_COUNT_STAT& counters) noexcept;
bool ParseHitCounts(const char* line, FLASHCACHE_WRITE_MODE writeMode,
                    FLASHCACHE_COUNT_STAT& counters) noexcept;

// Derives the percentages from the counts.
void ComputeHitPercents(FLASHCACHE_COUNT_STAT& counters) noexcept;

}  // namespace flashcache
