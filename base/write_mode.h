// What becomes of a write to a cache.
#pragma once

#include <cstdint>

namespace base {

// It goes to the volume and, if so, into the cache; into the cache alone, until it is cleaned; to the volume
// alone. The numbers stand on SSDs.
enum class WriteMode : std::uint32_t { kThru = 0, kBack = 1, kAround = 2 };

}  // namespace base
