// The configuration store and the frame that all subsystems stand on: what they use beyond the public header.
#pragma once

#include <string>

#include "common/handle.h"
#include "platform/vemocore.h"
#include "vemoflashcache.h"

namespace flashcache {

// ---- Configuration ----

inline constexpr const char* kConfigFile = "/usr/vemo/etc/flashcache.conf";
inline constexpr const char* kConfigTmpFile = "/tmp/flashcache.conf";
inline constexpr const char* kConfigLockFile = "/run/lock/ssdcache.lock";

// Buckets of the platform's hashes and lists that hold a section.
inline constexpr int kSectionCapacity = 1024;

// Layout of every key line that we write.
inline constexpr const char* kKeyLineFormat = "\t%s = %s\n";

using ConfigList = Handle<FLASHCACHE_CONFIG, VEMOFlashCacheConfigFree>;

// The reader behind VEMOFlashCacheConfigGet and VEMOFlashCacheConfigTmpGet, on the file `path`.
int FlashCacheConfigRead(const FLASHCACHE_CONFIG_SEARCH* criteria, FLASHCACHE_CONFIG** list,
                         const char* path);

// Builds one record from the keys of one section. `path` is for messages. Returns 0 and a record that the
// caller releases, or -1. Throws std::bad_alloc.
int FlashCacheConfigParse(const char* section, const VLIBC_SZHASH* keys, FLASHCACHE_CONFIG** record,
                          const char* path);

// What a FLASHCACHE_SEARCH_TYPE compares: the criteria's text with a key of the file or a field of a record.
struct SearchField {
    FLASHCACHE_SEARCH_TYPE type;
    const char* FLASHCACHE_CONFIG_SEARCH::* wanted;
    const char* key;  // NULL: the section's name
    char* FLASHCACHE_CONFIG::* field;
};

// NULL for a type that selects no configuration entry.
const SearchField* FindSearchField(FLASHCACHE_SEARCH_TYPE type) noexcept;

// The text of a write mode, NULL for a value without one; the mode of a text, "thru" when it names none.
const char* WriteModeText(FLASHCACHE_WRITE_MODE mode) noexcept;
FLASHCACHE_WRITE_MODE WriteModeFromText(const char* text) noexcept;

// ---- Device paths ----

inline constexpr const char* kMapperPrefix = "/dev/mapper/";
inline constexpr const char* kCacheDevPrefix = "/dev/mapper/cachedev";

// Whether `path` may name an SSD or a space device. NULL may not.
bool IsDevicePath(const char* path) noexcept;

// Whether `path` may name a cache device. NULL may not.
bool IsCacheDevPath(const char* path) noexcept;

// The device-mapper name of a cache device path: the path without "/dev/mapper/"; a pointer into it.
const char* CacheName(const char* cacheDevPath) noexcept;

// ---- The kernel's /proc directory of a cache ----

// Path of `entry` in the directory of the cache on these short names, cut to `size` bytes.
std::string ProcEntryPath(std::size_t size, const char* ssdName, const char* spaceName, const char* entry);

}  // namespace flashcache
