#pragma once

#include <cstdint>

namespace sizing {

// What becomes of a write: it goes to the volume and, if so, into the cache; into the cache alone, until it
// is cleaned; to the volume alone.
enum class WriteMode : std::uint8_t { kThru, kBack, kAround };

}  // namespace sizing
