// The pin tool: what its operations share.
#pragma once

#include <string>

#include "common/handle.h"

namespace flashcache {

inline constexpr const char* kPinTool = "/usr/vemo/sbin/vemocachepinfiletool";
inline constexpr const char* kPinConfigFile = "/usr/vemo/etc/flashcache_pin_file.conf";
inline constexpr std::size_t kPinCommandSize = 1024;

// The first line that the tool says, line end included; empty when it says none. Throws std::bad_alloc.
std::string FirstLine(const ChildStream& tool);

}  // namespace flashcache
