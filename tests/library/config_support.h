// What the tests of the configuration store share.
#pragma once

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "common/handle.h"
#include "support/library_test.h"

class ConfigTest : public LibraryTest {
  protected:
    static constexpr const char* kFile = "/usr/vemo/etc/flashcache.conf";
    static constexpr const char* kCopy = "/tmp/flashcache.conf";
    static constexpr const char* kStaging = "/tmp/flashcache-tmp.conf";
    static constexpr const char* kLock = "/run/lock/ssdcache.lock";

    using List = flashcache::Handle<FLASHCACHE_CONFIG, VEMOFlashCacheConfigFree>;

    // A record of literals, whose texts the library only reads.
    static FLASHCACHE_CONFIG Entry(const char* section, const char* uuid = "uuid") {
        FLASHCACHE_CONFIG entry{};
        entry.SectionName = const_cast<char*>(section);
        entry.SSDUUID = const_cast<char*>(uuid);
        entry.SSDDevPath = const_cast<char*>("/dev/md3");
        entry.SpacePath = const_cast<char*>("/dev/vg1/volume_1");
        entry.ReferencePath = const_cast<char*>("/volume1");
        entry.SSDID = entry.DiskLoc = entry.FlushState = const_cast<char*>("");
        return entry;
    }

    static FLASHCACHE_CONFIG_SEARCH Search(FLASHCACHE_SEARCH_TYPE type, const char* text) {
        FLASHCACHE_CONFIG_SEARCH search{};
        search.type = type;
        search.SSDUUID = type == FLASHCACHE_SEARCH_BY_SSD_UUID ? text : nullptr;
        search.SectionName = type == FLASHCACHE_SEARCH_BY_SECTION ? text : nullptr;
        search.SSDDevPath = type == FLASHCACHE_SEARCH_BY_SSD_DEV_PATH ? text : nullptr;
        search.SpacePath = type == FLASHCACHE_SEARCH_BY_SPACE_PATH ? text : nullptr;
        search.ReferencePath = type == FLASHCACHE_SEARCH_BY_REFERENCE_PATH ? text : nullptr;
        return search;
    }

    // All fields in one text, in the order of the record.
    static std::string Describe(const FLASHCACHE_CONFIG& entry) {
        const FLASHCACHE_POLICY& policy = entry.Policy;
        std::ostringstream text;
        for (const char* field : {entry.SSDUUID, entry.SSDDevPath, entry.SectionName, entry.SpacePath,
                                  entry.ReferencePath, entry.SSDID, entry.DiskLoc, entry.FlushState}) {
            text << (field == nullptr ? "NULL" : field) << '|';
        }
        for (const int32_t field :
             {policy.WriteMode, policy.ReclaimPolicy, policy.DelaySeconds, policy.DirtyThreshPercent,
              policy.SkipSeqIO, entry.CacheMissing, entry.SpaceMissing, entry.loaded, entry.CacheVersion,
              entry.CreateCritSection, entry.ConfigSource}) {
            text << field << '|';
        }
        text << entry.CacheSizeByte;
        return text.str();
    }

    static std::vector<std::string> Names(const FLASHCACHE_CONFIG* list) {
        std::vector<std::string> names;
        for (; list != nullptr; list = list->Next) {
            names.emplace_back(list->SectionName);
        }
        return names;
    }

    // Names of the entries that the file or its copy holds; "failed" when it cannot be read.
    static std::vector<std::string> Stored(decltype(VEMOFlashCacheConfigGet)* get = VEMOFlashCacheConfigGet) {
        List list;
        return get(nullptr, list.address()) < 0 ? std::vector<std::string>{"failed"} : Names(list.get());
    }

    // A section's lines as the file holds them.
    static std::string SectionText(const std::string& name, const char* path = kFile) {
        const std::string text = ReadWhole(path);
        const std::size_t begin = text.find("[" + name + "]");
        const std::size_t next = text.find("\n[", begin);
        return begin == std::string::npos ? ""
                                          : text.substr(begin, std::min(next, text.size() - 1) + 1 - begin);
    }

    static void StoreAbc() {
        std::filesystem::remove(kFile);
        for (const char* section : {"A", "B", "C"}) {
            const FLASHCACHE_CONFIG entry = Entry(section, "first");
            ASSERT_EQ(VEMOFlashCacheConfigSet(&entry), 0);
        }
    }

    static std::ptrdiff_t OpenDescriptors() {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    }
};
