// Configuration entries: what the callers of the library owe when a cache comes, loads and goes.
#pragma once

#include <functional>
#include <string>

#include "caches/library_lists.h"

namespace cli {

inline constexpr const char* kConfigAdvice =
    "check that /usr/vemo/etc, /tmp and /run/lock can be written and have room, then try again";

// The lock under which the library reads and writes entries.
inline constexpr const char* kConfigLock = "/run/lock/ssdcache.lock";

// What a new entry holds besides the cache's own numbers.
struct NewEntry {
    std::string section;
    std::string uuid;
    std::string referencePath;  // where the volume is to be mounted; may be empty
    bool unfinished = false;    // the creation is under way
    bool loaded = false;
};

// Where the appliance mounts its volume_N: "/volumeN"; empty for other volumes.
std::string DefaultMountPath(const std::string& volume);

// Whether the entry marks the device as missing, or it is not there.
bool IsSsdMissing(const FLASHCACHE_CONFIG& entry);
bool IsVolumeMissing(const FLASHCACHE_CONFIG& entry);

// A new random (version 4) UUID.
std::string NewUuid();

// Writes the entry of the cache that `param` describes.
void WriteEntry(const NewEntry& entry, const FLASHCACHE_CREATE_PARAM& param);

// Reads the entry anew, changes it and writes it back.
void ChangeEntry(const std::string& section, const std::function<void(FLASHCACHE_CONFIG&)>& change);

// Says in the entry whether the cache is up; a flush that was recorded before is over.
void MarkLoaded(const std::string& section, bool loaded);

void RemoveEntry(const std::string& section);

// The same after a failure; false when the entry is still there.
bool TakeBackEntry(const std::string& section);

// Brings the temporary copy, which a restart loses, up to the configuration file.
void RefreshCopy();

}  // namespace cli
