// Writing dirty blocks back: what other modules use beyond the public header.
#pragma once

#include "vemoflashcache.h"

namespace flashcache {

// The text under which a state is recorded, NULL (logged) for a value that is no state.
const char* FlashCacheFlushStateToStr(FLASHCACHE_FLUSH_STATE state) noexcept;

// Records the flush state of the cache on this SSD in its configuration entry. Returns 0 or -1.
int FlashCacheFlushStateSet(const char* ssdPath, FLASHCACHE_FLUSH_STATE state) noexcept;

// How many blocks were dirty when the flush began, and how many still are.
struct FlushCounts {
    int initial = -1;
    int remaining = -1;
};

// Reads the kernel's counts for the cache on these short names. Returns 0 or -1.
int FlashCacheFlushProgressRead(const char* ssdName, const char* spaceName, FlushCounts* counts);

// Parses the kernel's progress file. Returns whether it holds both counts.
bool ParseFlushCounts(const char* text, FlushCounts& counts) noexcept;

// The percentage that these counts stand for.
float FlushPercent(const FlushCounts& counts) noexcept;

// Takes the number of failed write-backs out of the kernel's line of errors. Returns whether it has one.
bool ParseSyncErrors(const char* text, long& count) noexcept;

// What the kernel counts of failed write-backs.
enum class SyncErrors { kNone, kSome, kUnknown };

// Asks the kernel for failed write-backs of the cache on these devices.
SyncErrors FlashCacheSyncErrorCheck(const char* ssdPath, const char* spacePath) noexcept;

// ---- The power management's record ----

inline constexpr const char* kApmPersistentFile = "/usr/vemo/etc/flashcache_apm_flush_done.conf";
inline constexpr const char* kApmRuntimeFile = "/var/run/ssd-cache/flashcache_apm_flush_done.conf";
inline constexpr const char* kApmRuntimeDir = "/var/run/ssd-cache";
inline constexpr const char* kApmLockFile = "/run/lock/ssdcache-apm-flush.lock";
inline constexpr const char* kApmDone = "yes";

}  // namespace flashcache
