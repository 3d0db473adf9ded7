#include "model/state.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "base/unique_fd.h"
#include "common/handle.h"
#include "config/serial_list.h"
#include "flush/flush.h"
#include "kernel/kernel.h"
#include "support/appliance.h"

namespace model {

namespace {

constexpr std::size_t kBlockSize = 4096;
constexpr const char* kStaging = "/tmp/flashcache-tmp.conf";

std::string OrEmpty(const char* text) {
    return text == nullptr ? "" : text;
}

Entry Named(const std::string& section) {
    Entry entry;
    entry.section = section;
    return entry;
}

std::optional<Entries> ReadEntries(decltype(VEMOFlashCacheConfigGet)* get, const char* path) {
    if (access(path, F_OK) != 0) {
        return std::nullopt;
    }
    flashcache::Handle<FLASHCACHE_CONFIG, VEMOFlashCacheConfigFree> list;
    if (get(nullptr, list.address()) < 0) {
        return Entries{Named(std::string("unreadable: ") + path)};
    }
    Entries entries;
    for (const FLASHCACHE_CONFIG* record = list.get(); record != nullptr; record = record->Next) {
        entries.push_back(FromRecord(*record));
    }
    return entries;
}

// The file's lines of key=value or key = value; a section's name counts as the key of what follows it.
std::optional<std::map<std::string, std::string>> ReadLines(const char* path, const std::string& only) {
    if (access(path, F_OK) != 0) {
        return std::nullopt;
    }
    std::map<std::string, std::string> values;
    std::istringstream text(ReadWhole(path));
    std::string section;
    for (std::string line; std::getline(text, line);) {
        const std::size_t equal = line.find('=');
        if (line.starts_with('[')) {
            section = line.substr(1, line.size() - 2);
        } else if (equal != std::string::npos && line.find(only) != std::string::npos) {
            const std::size_t begin = line.find_first_not_of(" \"", equal + 1);
            std::string value = begin == std::string::npos ? "" : line.substr(begin);
            std::erase(value, '"');
            values[section.empty() ? line.substr(0, equal) : section] = value;
        }
    }
    return values;
}

std::optional<std::set<std::string>> ReadKeys(const char* path) {
    const auto lines = ReadLines(path, "");
    if (!lines) {
        return std::nullopt;
    }
    std::set<std::string> keys;
    for (const auto& [key, value] : *lines) {
        keys.insert(key);
    }
    return keys;
}

Knobs ReadKnobs(const DiskNames& names) {
    Knobs knobs{};
    for (int knob = 1; knob < static_cast<int>(knobs.size()); ++knob) {
        knobs.at(static_cast<std::size_t>(knob)) =
            appliance::KnobValue(flashcache::SysctlKnobName(knob), names.kernelName);
    }
    return knobs;
}

// Which of the two devices there may be is the pair's.
std::string DeviceOf(const DiskNames& names) {
    char path[64] = "";
    return VEMOFlashcacheGetCachePath(names.ssd, path, sizeof path) == 1 ? path : "none";
}

Pair ObservePair(const DiskNames& names, const Pair& known, bool wholly) {
    Pair pair;
    pair.version = VEMOFlashCacheVersionGet(names.ssd);
    pair.mode = pair.version == -1 ? -1 : known.mode;
    pair.content = pair.version == -1 ? ReadContent(names.space) : known.content;
    pair.unsure = known.unsure;
    const std::string folder = std::string("/proc/flashcache/") + names.kernelName;
    if (access(folder.c_str(), F_OK) == 0) {
        pair.device = known.device.empty() ? DeviceOf(names) : known.device;
        pair.forced = ReadWhole(folder + "/flashcache_attribute").starts_with("force-remove");
        pair.knobs = wholly || known.device.empty() ? ReadKnobs(names) : known.knobs;
        pair.content = wholly ? ReadContent(pair.device) : known.content;
    }
    return pair;
}

template <class Value>
void Compare(const char* what, const Value& expected, const Value& found, std::string& difference) {
    if (difference.empty() && expected != found) {
        difference = std::string(what) + ": expected " + testing::PrintToString(expected) + ", found " +
                     testing::PrintToString(found);
    }
}

std::vector<std::string> Texts(const std::optional<Entries>& entries) {
    std::vector<std::string> texts;
    for (const Entry& entry : entries.value_or(Entries{Named("no file")})) {
        texts.push_back(ToText(entry));
    }
    return texts;
}

}  // namespace

FLASHCACHE_CONFIG ToRecord(const Entry& entry) {
    const auto text = [](const std::string& field) { return const_cast<char*>(field.c_str()); };
    FLASHCACHE_CONFIG record{};
    record.SectionName = text(entry.section);
    record.SSDUUID = text(entry.uuid);
    record.SSDDevPath = text(entry.ssd);
    record.SpacePath = text(entry.space);
    record.ReferencePath = text(entry.reference);
    record.FlushState = text(entry.flush);
    record.Policy = {entry.mode, entry.reclaim, entry.delay, entry.dirtyThresh, entry.skip};
    record.CacheVersion = entry.version;
    record.CacheSizeByte = entry.size;
    return record;
}

Entry FromRecord(const FLASHCACHE_CONFIG& record) {
    const FLASHCACHE_POLICY& policy = record.Policy;
    return {OrEmpty(record.SectionName),
            OrEmpty(record.SSDUUID),
            OrEmpty(record.SSDDevPath),
            OrEmpty(record.SpacePath),
            OrEmpty(record.ReferencePath),
            OrEmpty(record.FlushState),
            policy.WriteMode,
            policy.ReclaimPolicy,
            policy.DelaySeconds,
            policy.DirtyThreshPercent,
            policy.SkipSeqIO,
            record.CacheVersion,
            record.CacheSizeByte};
}

std::string ToText(const Entry& entry) {
    std::ostringstream text;
    for (const std::string& field :
         {entry.section, entry.uuid, entry.ssd, entry.space, entry.reference, entry.flush}) {
        text << field << '|';
    }
    for (const int field :
         {entry.mode, entry.reclaim, entry.delay, entry.dirtyThresh, entry.skip, entry.version}) {
        text << field << '|';
    }
    text << entry.size;
    return text.str();
}

std::string ReadContent(const std::string& device) {
    const base::UniqueFd fd(open(device.c_str(), O_RDONLY | O_CLOEXEC));
    std::string held(kBlocks * kBlockSize, '?');
    if (!fd || pread(fd.Get(), held.data(), held.size(), 0) != static_cast<ssize_t>(held.size())) {
        return "unreadable";
    }
    std::string content;
    for (std::size_t block = 0; block < kBlocks; ++block) {
        const std::string bytes = held.substr(block * kBlockSize, kBlockSize);
        const bool whole = bytes == std::string(kBlockSize, bytes[0]);
        content += !whole ? '?' : bytes[0] == '\0' ? '.' : bytes[0];
    }
    return content;
}

bool WriteContent(const std::string& device, int block, char letter) {
    const base::UniqueFd fd(open(device.c_str(), O_WRONLY | O_CLOEXEC));
    const std::string bytes(kBlockSize, letter);
    return fd && pwrite(fd.Get(), bytes.data(), bytes.size(), static_cast<off_t>(kBlockSize) * block) ==
                     static_cast<ssize_t>(bytes.size());
}

State Observe(const State& known, bool wholly) {
    State found;
    found.file = ReadEntries(VEMOFlashCacheConfigGet, appliance::kConfig);
    found.copy = ReadEntries(VEMOFlashCacheConfigTmpGet, appliance::kConfigCopy);
    found.serials = ReadLines(flashcache::kSerialFile, flashcache::kSerialKey);
    found.apmFolder = access(flashcache::kApmRuntimeDir, F_OK) == 0;
    found.apmKept = ReadKeys(flashcache::kApmPersistentFile);
    found.apmNow = ReadKeys(flashcache::kApmRuntimeFile);
    for (std::size_t i = 0; i < kPairs.size(); ++i) {
        found.pairs.at(i) = ObservePair(kPairs.at(i), known.pairs.at(i), wholly);
    }
    return found;
}

State Reset() {
    State state = Observe({}, true);
    for (std::size_t i = 0; i < kPairs.size(); ++i) {
        if (!state.pairs.at(i).device.empty()) {
            appliance::RunProgram({"/sbin/dmsetup", "remove", state.pairs.at(i).device.substr(12)});
        }
        if (state.pairs.at(i).version != -1) {
            appliance::RunProgram({"/usr/bin/flashcache_destroy", "-f", kPairs.at(i).ssd});
        }
        for (int block = 0; block < kBlocks; ++block) {
            WriteContent(kPairs.at(i).space, block, '\0');
        }
    }
    for (const char* path :
         {appliance::kConfig, appliance::kConfigCopy, kStaging, flashcache::kSerialFile,
          flashcache::kApmPersistentFile, flashcache::kApmRuntimeFile, flashcache::kApmRuntimeDir}) {
        std::filesystem::remove(path);
    }
    state = {};
    for (Pair& pair : state.pairs) {
        pair.content = std::string(kBlocks, '.');
    }
    return state;
}

std::string Difference(const State& expected, const State& found) {
    std::string difference;
    Compare("the configuration", Texts(expected.file), Texts(found.file), difference);
    Compare("its copy", Texts(expected.copy), Texts(found.copy), difference);
    Compare("serial numbers", expected.serials, found.serials, difference);
    Compare("the record of flushes", expected.apmKept, found.apmKept, difference);
    Compare("its copy", expected.apmNow, found.apmNow, difference);
    Compare("the folder of that copy", expected.apmFolder, found.apmFolder, difference);
    for (std::size_t i = 0; i < kPairs.size(); ++i) {
        const Pair& left = expected.pairs.at(i);
        const Pair& right = found.pairs.at(i);
        Compare(kPairs.at(i).ssd, left.device, right.device, difference);
        Compare(kPairs.at(i).ssd, left.version, right.version, difference);
        Compare(kPairs.at(i).kernelName, left.knobs, right.knobs, difference);
        Compare(kPairs.at(i).kernelName, left.forced, right.forced, difference);
        Compare(kPairs.at(i).space, left.content, right.content, difference);
    }
    return difference;
}

}  // namespace model
