#include "caches/entry.h"

#include <fmt/format.h>
#include <sys/random.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

#include "caches/programs.h"
#include "support/device.h"
#include "support/dry_run.h"
#include "support/failure.h"

namespace cli {
namespace {

FLASHCACHE_CONFIG_SEARCH BySection(const std::string& section) {
    FLASHCACHE_CONFIG_SEARCH search{};
    search.type = FLASHCACHE_SEARCH_BY_SECTION;
    search.SectionName = section.c_str();
    return search;
}

// A damaged entry may have no path at all.
bool IsThere(const char* path) {
    return path != nullptr && IsBlockDevice(path);
}

// The entry; nothing when it is not there or cannot be read, with the reason in `slot`.
ConfigList Read(const std::string& section, ErrorSlot* slot = nullptr) {
    const FLASHCACHE_CONFIG_SEARCH search = BySection(section);
    FLASHCACHE_CONFIG* found = nullptr;
    const Outcome outcome = Attempt([&] { return VEMOFlashCacheConfigGet(&search, &found); });
    if (slot != nullptr) {
        *slot = outcome.slot;
    }
    return ConfigList(outcome.result < 1 ? nullptr : found);
}

// Whether the permanent file holds it: then it is the copy in /tmp alone that failed.
bool IsWritten(const FLASHCACHE_CONFIG& record) {
    const ConfigList entry = Read(record.SectionName);
    return entry && entry->loaded == record.loaded && entry->CreateCritSection == record.CreateCritSection;
}

void Write(const FLASHCACHE_CONFIG& record) {
    const Outcome outcome = Change(
        Attempt, [&] { return Step{"VEMOFlashCacheConfigSet", {record.SectionName}, RefreshingCopy()}; },
        [&] { return VEMOFlashCacheConfigSet(&record); });
    if (outcome.result != 0) {
        const char* what = IsWritten(record)
                               ? "the configuration entry {} is written, but its copy in /tmp is not"
                               : "the configuration entry {} could not be written";
        throw LibraryFailure(fmt::format(fmt::runtime(what), record.SectionName), outcome, kConfigAdvice);
    }
}

}  // namespace

std::string DefaultMountPath(const std::string& volume) {
    const std::string number = volume.substr(volume.rfind('/') + 1);
    constexpr std::string_view kPrefix = "volume_";
    const bool isNamed = number.starts_with(kPrefix) && number.size() > kPrefix.size() &&
                         number.find_first_not_of("0123456789", kPrefix.size()) == std::string::npos;
    return isNamed ? "/volume" + number.substr(kPrefix.size()) : "";
}

bool IsSsdMissing(const FLASHCACHE_CONFIG& entry) {
    return entry.CacheMissing != 0 || !IsThere(entry.SSDDevPath);
}

bool IsVolumeMissing(const FLASHCACHE_CONFIG& entry) {
    return entry.SpaceMissing != 0 || !IsThere(entry.SpacePath);
}

std::string NewUuid() {
    std::array<unsigned char, 16> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw Failure{"no random numbers for the cache's UUID", "getrandom failed", ""};
    }
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0f) | 0x40);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3f) | 0x80);
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        text += fmt::format("{}{:02x}", i == 4 || i == 6 || i == 8 || i == 10 ? "-" : "", bytes[i]);
    }
    return text;
}

void WriteEntry(const NewEntry& entry, const FLASHCACHE_CREATE_PARAM& param) {
    // The record's texts are not const, yet writing leaves them alone: these copies keep the casts away.
    std::string section = entry.section;
    std::string uuid = entry.uuid;
    std::string ssd = param.SSDDevPath;
    std::string volume = param.SpacePath;
    std::string reference = entry.referencePath;
    std::string none;
    FLASHCACHE_CONFIG record{};
    record.SectionName = section.data();
    record.SSDUUID = uuid.data();
    record.SSDDevPath = ssd.data();
    record.SpacePath = volume.data();
    record.ReferencePath = reference.data();
    record.SSDID = none.data();
    record.DiskLoc = none.data();
    record.FlushState = none.data();
    record.Policy = param.Policy;
    record.CacheSizeByte = param.CacheSizeKB * 1024;
    record.CacheVersion = param.CacheVersion;
    record.CreateCritSection = entry.unfinished ? 1 : 0;
    record.loaded = entry.loaded ? 1 : 0;
    Write(record);
}

void ChangeEntry(const std::string& section, const std::function<void(FLASHCACHE_CONFIG&)>& change) {
    ErrorSlot slot;
    const ConfigList entry = Read(section, &slot);
    if (!entry) {
        throw LibraryFailure(fmt::format("the configuration entry {} could not be read", section),
                             {-1, slot, ""}, "vemocachectl config list");
    }
    change(*entry);
    Write(*entry);
}

void MarkLoaded(const std::string& section, bool loaded) {
    ChangeEntry(section, [&](FLASHCACHE_CONFIG& entry) {
        entry.loaded = loaded ? 1 : 0;
        entry.CreateCritSection = 0;
        if (entry.FlushState != nullptr && *entry.FlushState != '\0') {
            char* state = strdup("normal");
            if (state == nullptr) {
                throw std::bad_alloc();
            }
            std::free(entry.FlushState);
            entry.FlushState = state;
        }
    });
}

void RemoveEntry(const std::string& section) {
    const FLASHCACHE_CONFIG_SEARCH search = BySection(section);
    const Outcome outcome = Change(
        Attempt, [&] { return Step{"VEMOFlashCacheConfigDelete", {section}, RefreshingCopy()}; },
        [&] { return VEMOFlashCacheConfigDelete(&search); });
    if (outcome.result != 0) {
        const char* what = Read(section)
                               ? "the configuration entry {} could not be removed"
                               : "the configuration entry {} is removed, but not from its copy in /tmp";
        throw LibraryFailure(fmt::format(fmt::runtime(what), section), outcome, kConfigAdvice);
    }
}

bool TakeBackEntry(const std::string& section) {
    try {
        RemoveEntry(section);
    } catch (const Failure&) {
        return !Read(section);
    }
    return true;
}

void RefreshCopy() {
    // All processes make the copy in one and the same file: the lock under which the library writes entries
    // keeps them apart.
    const auto step = [] { return Step{"VEMOFlashCacheConfigTmpUpdate", {}, RefreshingCopy()}; };
    const Outcome outcome = Change(Attempt, step, [] {
        int lock = -1;
        if (VEMOFlashCacheLock(kConfigLock, 1, &lock) != 1) {
            return -1;
        }
        const int result = VEMOFlashCacheConfigTmpUpdate();
        VEMOFlashCacheUnlock(lock);
        return result;
    });
    if (outcome.result != 0) {
        throw LibraryFailure("the temporary copy of the configuration could not be refreshed", outcome,
                             kConfigAdvice);
    }
}

}  // namespace cli
