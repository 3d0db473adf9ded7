// The programs that library calls run to change something, as argument vectors in the order in which they
// run. A test holds them against what really runs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/dry_run.h"
#include "vemoflashcache.h"

namespace cli {

using Programs = std::vector<Program>;

// The parts of a list, one behind the other.
Programs Joined(std::vector<Programs> parts);

// Modules that are not loaded yet, and those that the last cache takes along; `ssd` is that of the one that
// goes.
Programs InsertingModules();
Programs RemovingModules(const std::string& ssd);

Programs WritingKnob(const std::string& knob, std::int32_t value, const std::string& ssd,
                     const std::string& volume);
Programs WritingTuning(const FLASHCACHE_POLICY& policy, const std::string& ssd, const std::string& volume);
Programs WritingState(FLASHCACHE_HANDLE_STATE state, const std::string& ssd, const std::string& volume);

// The copy of the configuration that is made anew with each change of an entry.
Programs RefreshingCopy();

// The library starts the write-back again every few seconds; that program stands here once.
Programs Flushing(const std::string& ssd, const std::string& volume);

// The name of the cache device that comes next: "cachedev_0".
std::string NextDeviceName();

Programs CreatingCache(const FLASHCACHE_CREATE_PARAM& param);
Programs LoadingCache(const std::string& ssd, const std::string& volume, const FLASHCACHE_POLICY& policy);
Programs UnloadingCache(const std::string& device);
Programs WipingSsd(const std::string& ssd);
Programs ExpandingCache(const FLASHCACHE_CONFIG& entry, const std::string& device);

// The steps that more than one verb has.
Step LoadStep(const std::string& ssd, const std::string& volume, const FLASHCACHE_POLICY& policy);
Step UnloadStep(const std::string& device);
Step WipeStep(const std::string& ssd);
Step StateStep(const std::string& ssd, const std::string& volume, FLASHCACHE_HANDLE_STATE state);

Programs ChangingPin(bool pin, const std::string& file, const std::string& mount);
Programs TellingPinTool(const std::string& option, const std::string& mount);
Programs UpdatingSsds();

}  // namespace cli
