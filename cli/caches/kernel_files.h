// The kernel's files of a running cache, read as they are: a look at all of them starts no program.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "vemoflashcache.h"

namespace cli {

using Counts = std::map<std::string, std::int64_t, std::less<>>;

// The number of this name; nothing when there is none.
std::optional<std::int64_t> CountIn(const Counts& counts, std::string_view name);

// The "name=number" words of a text; others are passed over.
Counts CountsOf(std::string_view text);

// Those in a file of the cache under /proc/flashcache, such as "flashcache_errors"; `pair` is the kernel's
// name of the cache. Nothing when it cannot be read or holds none.
std::optional<Counts> ReadCounts(const std::string& pair, const std::string& file);

// The knobs that state and tuning are made up of, by name; nothing when one of them cannot be read.
std::optional<Counts> ReadKnobs(const std::string& pair);

// The handle state that these knobs make up, as VEMOFlashCacheHandleStateGet tells it.
FLASHCACHE_HANDLE_STATE HandleStateIn(const Counts& knobs);

}  // namespace cli
