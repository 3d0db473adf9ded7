// The SSD compatibility database: what its operations share.
#pragma once

#include <cstdint>

#include "common/handle.h"
#include "vemoflashcache.h"

namespace flashcache {

inline constexpr const char* kDatabase = "/etc.defaults/support_ssd.db";
inline constexpr const char* kVersionFile = "/etc.defaults/VERSION";
inline constexpr const char* kModelFile = "/etc.defaults/vemoinfo.conf";
inline constexpr int kCapacity = 1024;

// A copy without the blanks around it; empty when the trimming failed. Throws std::bad_alloc.
Text TrimmedCopy(const char* text);

// Whether the section `name` is about SSDs of this model (or one that begins so) and about this size in
// bytes.
bool SectionFits(const char* name, const char* model, uint64_t size) noexcept;

}  // namespace flashcache
