// The kernel's control interface: what other modules use beyond the public header.
#pragma once

#include <cstdint>
#include <string>

#include "vemoflashcache.h"

namespace flashcache {

// The knob's name in /proc/sys, NULL for a value that names no knob.
const char* SysctlKnobName(FLASHCACHE_SYSCTL knob) noexcept;

// Reads the knob `knobName` of the cache with the sysctl device name `devName`. Returns 0 or -1.
int FlashCacheSysctlRead(const char* devName, const char* knobName, int32_t* value);

// Parses one answer of the sysctl tool on `entry`. Returns whether it holds an integer.
bool ParseSysctlAnswer(const char* line, const std::string& entry, int32_t& value) noexcept;

// The knobs that make up a handle state; -1 until read.
struct HandleKnobs {
    int32_t iosTotal = -1;
    int32_t iosSet = -1;
    int32_t cacheAll = -1;
    int32_t doSync = -1;
    int32_t stopSync = -1;  // shown in messages, of no weight
};

// Which state these knobs make up, UNKNOWN for none.
FLASHCACHE_HANDLE_STATE ClassifyHandleState(const HandleKnobs& knobs) noexcept;

}  // namespace flashcache
