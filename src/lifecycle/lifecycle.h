// The life of a cache: what its operations share beyond the public header.
#pragma once

#include <string>

#include "common/log.h"

namespace flashcache {

inline constexpr const char* kLoadTool = "/usr/bin/flashcache_load";

// The first cache device name "cachedev_%d" (0 to 999) that no device has, empty when all are taken; the
// failure is logged under the caller's own file and line. Throws std::bad_alloc.
std::string FlashCacheGetNewCacheName(Where where = Where::current());

// Hands the device path of the cache `name` to a caller who gave a buffer (`out` set, `outSize` above 0).
// Returns 0, or -1 when it does not fit.
int ReturnCachePath(const std::string& name, char* out, int outSize, Where where = Where::current()) noexcept;

}  // namespace flashcache
