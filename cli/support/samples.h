// A look at all of a device without reading all of it.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

namespace cli {

// Calls `visit` with the first and the last MiB of the open device and with `count` samples of 64 KiB between
// them, evenly spread; what lies past the end is left out. False as soon as `visit` is, or when a part cannot
// be read.
bool VisitSamples(int device, std::uint64_t size, std::uint64_t count,
                  const std::function<bool(std::string_view bytes)>& visit);

}  // namespace cli
