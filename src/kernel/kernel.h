// The kernel's control interface: what other modules use beyond the public header.
#pragma once

#include <cstdint>
#include <string>

#include "vemoflashcache.h"

namespace flashcache {

/// The knob's name in /proc/sys, NULL for a value that names no knob.
const char* SysctlKnobName(FLASHCACHE_SYSCTL knob) noexcept;

/// Reads the knob `knobName` of the cache with the sysctl device name `devName`. Returns 0 or -1.
int FlashCacheSysctlRead(const char* devName, const char* knobName, int32_t* value);

/// Parses one answer of the sysctl tool on `entry`. Returns whether it holds an integer.
bool ParseSysctlAnswer(const char* line, const std::string& entry, int32_t& value) noexcept;

}  // namespace flashcache
