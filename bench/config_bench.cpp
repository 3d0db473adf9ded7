// Reading the cache configuration, against GLib reading the same file.

#include <unistd.h>

#include <algorithm>

#include <fmt/format.h>

#include "appliance.h"
#include "benches.h"
#include "comparison.h"
#include "key_file.h"
#include "vemoflashcache.h"

namespace bench {
namespace {

constexpr const char* kTmpFile = "/tmp/flashcache.conf";
constexpr int kFew = 128;
constexpr int kLargest = 10'000;

constexpr const char* kTextKeys[] = {"SSDUUID",       "SSDDevPath", "SpacePath", "ReferencePath", "WriteMode",
                                     "ReclaimPolicy", "SSDID",      "DiskLoc",   "FlushState"};
constexpr const char* kNumberKeys[] = {
    "DelaySeconds", "DirtyThreshPercent", "SkipSeqIO",    "CacheMissing",      "SpaceMissing",
    "loaded",       "CacheSizeByte",      "CacheVersion", "CreateCritSection", "ConfigSource"};

constexpr const char* kSection =
    "[cache_{0}]\n"
    "\tSSDUUID = 0f4b9d3c-6a57-4c1e-9d20-{0:012x}\n"
    "\tSSDDevPath = /dev/md{1}\n"
    "\tSpacePath = /dev/vg{1}/volume_1\n"
    "\tReferencePath = /volume{1}\n"
    "\tWriteMode = back\n"
    "\tReclaimPolicy = lru\n"
    "\tDelaySeconds = 900\n"
    "\tDirtyThreshPercent = 20\n"
    "\tSkipSeqIO = 1\n"
    "\tSSDID = S3Z8NB0K{0:06}\n"
    "\tDiskLoc = Cache device 1\n"
    "\tCacheMissing = 0\n"
    "\tSpaceMissing = 0\n"
    "\tloaded = 1\n"
    "\tCacheSizeByte = 107374182400\n"
    "\tCacheVersion = 1\n"
    "\tCreateCritSection = 0\n"
    "\tConfigSource = 0\n"
    "\tFlushState = normal\n";

std::string TextOf(int entries) {
    std::string text;
    for (int i = 0; i < entries; ++i) {
        text += fmt::format(kSection, i, i + 3);
    }
    return text;
}

void WriteEntries(const char* path, int entries) {
    WriteFile(path, TextOf(entries));
    usleep(20'000);  // a file that has just changed is read with suspicion
}

// Has the temporary copy hold so many entries and the configuration itself a few.
void UseConfiguration(int entries) {
    static int used = 0;
    if (used == 0) {
        WriteEntries("/usr/vemo/etc/flashcache.conf", kFew);
    }
    if (used != entries) {
        WriteEntries(kTmpFile, entries);
        used = entries;
    }
}

void ReadFew(int entries) {
    FLASHCACHE_CONFIG* list = nullptr;
    Require(VEMOFlashCacheConfigGet(nullptr, &list) == entries, "not all entries were read");
    VEMOFlashCacheConfigFree(list);
}

void ReadOurs(int entries) {
    FLASHCACHE_CONFIG* list = nullptr;
    Require(VEMOFlashCacheConfigTmpGet(nullptr, &list) == entries, "not all entries were read");
    VEMOFlashCacheConfigFree(list);
}

// Each value the way that GLib hands out one of its kind.
void ReadGlib(int entries) {
    const KeyFile file = LoadKeyFile(kTmpFile);
    gsize count = 0;
    const GlibTexts groups(g_key_file_get_groups(file.get(), &count));
    Require(count == static_cast<gsize>(entries), "GLib did not read all entries");
    for (gsize i = 0; i < count; ++i) {
        const char* const group = groups.get()[i];
        for (const char* key : kTextKeys) {
            const GlibText value(g_key_file_get_string(file.get(), group, key, nullptr));
            Require(value != nullptr, key);
        }
        for (const char* key : kNumberKeys) {
            g_key_file_get_int64(file.get(), group, key, nullptr);
        }
    }
}

Run Afresh(int entries, void (*readFile)(int)) {
    return [=] {
        UseConfiguration(entries);
        ForgetFile();
        return CostOf([&] { readFile(entries); });
    };
}

// Right after the file was written: within the grain of its time stamps, which then prove nothing.
Run RightAfterWrite(int entries, void (*readFile)(int)) {
    return [=] {
        UseConfiguration(entries);
        ForgetFile();
        WriteFile(kTmpFile, TextOf(entries));
        return CostOf([&] { readFile(entries); });
    };
}

// Next to a large configuration, on a heap as a run of this size leaves it, not one of another.
Run ForGrowth(int entries, void (*readFile)(int)) {
    return [=] {
        UseConfiguration(kLargest);
        readFile(entries);
        ForgetFile();
        return CostOf([&] { readFile(entries); });
    };
}

}  // namespace

void RegisterConfig() {
    for (const int entries : {1, 16, 128, 1'000, kLargest}) {
        Comparison comparison;
        comparison.name = fmt::format("config/{}", entries);
        comparison.ours = Afresh(entries, ReadOurs);
        comparison.baselineName = "GLib's GKeyFile, no lock";
        comparison.baseline = Afresh(entries, ReadGlib);
        comparison.pairs = std::clamp(20'000 / entries, 15, 2'000);
        comparison.lines = {{kCpu, entries == 1 ? 1.10 : 0.25}, {kWall, 0}};
        Register(comparison);
    }
    for (const int entries : {16, kLargest}) {
        Comparison fresh;
        fresh.name = fmt::format("config/new/{}", entries);
        fresh.ours = RightAfterWrite(entries, ReadOurs);
        fresh.baselineName = "GLib's GKeyFile, file just written";
        fresh.baseline = RightAfterWrite(entries, ReadGlib);
        fresh.pairs = 15;
        fresh.lines = {{kCpu, 0}, {kWall, 0}};
        Register(fresh);
    }
    Comparison growth;
    growth.name = "config/growth";
    growth.ours = ForGrowth(kLargest, ReadOurs);
    growth.baselineName = fmt::format("exponent, {} to {} sections", kFew, kLargest);
    growth.baseline = ForGrowth(kFew, ReadFew);
    growth.pairs = 31;
    growth.lines = {{kCpu, 1.10}, {kWall, 0}};
    growth.growth = double{kLargest} / kFew;
    Register(growth);
}

}  // namespace bench
