#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <array>

#include "base/unique_fd.h"
#include "caches/flush_lock.h"
#include "caches/ssd_support.h"
#include "doctor/gather_parts.h"
#include "output/record.h"

namespace cli {
namespace {

std::string OrEmpty(const char* text) {
    return text == nullptr ? "" : text;
}

EntryFacts EntryFactsOf(const FLASHCACHE_CONFIG& entry) {
    EntryFacts facts;
    facts.policy = entry.Policy;
    facts.format = entry.CacheVersion;
    facts.bytes = entry.CacheSizeByte;
    facts.mountPath = OrEmpty(entry.ReferencePath);
    facts.flushState = OrEmpty(entry.FlushState);
    facts.isLoaded = entry.loaded != 0;
    facts.isUnfinished = entry.CreateCritSection != 0;
    facts.ssdMarkedMissing = entry.CacheMissing != 0;
    facts.volumeMarkedMissing = entry.SpaceMissing != 0;
    return facts;
}

bool CanBeRead(const std::string& path) {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): open has no other form.
    const base::UniqueFd device(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, 512> start{};
    return device && pread(device.Get(), start.data(), start.size(), 0) > 0;
}

void AddDisks(SsdFacts& facts, const std::string& ssd, const std::string& cache, const Gathering& gathering) {
    for (const auto& [disk, supported] : SupportOfDisks(ssd)) {
        facts.disks.push_back(disk);
        if (supported == false) {
            facts.unsupported.push_back(fmt::format("{} of {}", disk.model, HumanSize(disk.bytes)));
        } else if (!supported) {
            gathering.Miss(Source::kDatabase, cache,
                           fmt::format("the database does not tell of {}", disk.model));
        }
    }
}

// Why an SSD that is there tells of no cache.
void LookAtSilent(SsdFacts& facts, const std::string& ssd, const std::string& cache,
                  const Gathering& gathering) {
    const bool isRead = CanBeRead(ssd);
    facts.isOfUnknownLayout = !isRead || VEMOFlashCacheVersionGet(ssd.c_str()) != FLASHCACHE_VERSION_UNKNOWN;
    if (facts.isOfUnknownLayout) {
        gathering.Miss(
            Source::kSuperblock, cache,
            fmt::format("{} {}", ssd, isRead ? "holds a cache of an unknown layout" : "cannot be read"));
    }
}

void NoteUncounted(const CacheFacts& cache, const Gathering& gathering) {
    const auto& content = cache.ssdSide.content;
    if (cache.IsUp() || !content || content->dirtyBlocks || cache.ssdSide.isOfOtherVolume ||
        !cache.MayHoldDirty()) {
        return;
    }
    const bool isLong = content->blocks > gathering.mostBlocks;
    gathering.Miss(Source::kBlockList, cache.name,
                   fmt::format("the list of {} blocks on {} {}", content->blocks, cache.ssd,
                               isLong ? "is long" : "cannot be read"));
}

SsdFacts GatherSsd(const Cache& cache, const Gathering& gathering) {
    SsdFacts facts;
    const std::string ssd = cache.Ssd();
    facts.isThere = IsBlockDevice(ssd);
    if (!facts.isThere || cache.mayBeUp) {
        return facts;
    }
    // While it is up, the SSD's own list of dirty blocks lags behind.
    facts.content = cache.IsUp() ? ReadSsdContent(ssd, 0) : cache.onSsd;
    if (!facts.content) {
        LookAtSilent(facts, ssd, cache.Name(), gathering);
    }
    facts.isOfOtherVolume = facts.content && !SameDevice(facts.content->volume, cache.Volume());
    AddDisks(facts, ssd, cache.Name(), gathering);
    return facts;
}

VolumeFacts GatherVolume(const Cache& cache, const Gathering& gathering) {
    VolumeFacts facts;
    const std::string volume = cache.Volume();
    facts.isThere = IsBlockDevice(volume);
    if (!facts.isThere) {
        return facts;
    }
    facts.bytes = DeviceSize(volume);
    for (const auto& mount : gathering.mounts) {
        if (mount.device.starts_with('/') && SameDevice(mount.device, volume)) {
            facts.mounts.push_back(mount.folder);
        }
    }
    if (!cache.IsUp() && !cache.mayBeUp && IsBlockDevice(cache.Ssd())) {
        facts.since = LookSinceUnload(cache);
    }
    return facts;
}

// Nothing where its lock cannot be looked at.
std::optional<bool> LookForFlush(const Cache& cache, const Gathering& gathering) {
    if (cache.Ssd().empty() || cache.Volume().empty()) {
        return false;
    }
    try {
        return FlushRuns(cache);
    } catch (const Failure& failure) {
        gathering.Miss(Source::kLocks, cache.Name(), fmt::format("{}: {}", failure.what, failure.why));
        return std::nullopt;
    }
}

// The flush may have ended since the entries were read: it records its end while it still holds its lock.
std::string FlushStateNow(const std::string& section) {
    FLASHCACHE_CONFIG_SEARCH search{};
    search.type = FLASHCACHE_SEARCH_BY_SECTION;
    search.SectionName = section.c_str();
    FLASHCACHE_CONFIG* found = nullptr;
    VEMOFlashCacheConfigGet(&search, &found);
    const ConfigList entry(found);
    return entry ? OrEmpty(entry->FlushState) : "";
}

}  // namespace

CacheFacts GatherCache(const Cache& cache, const Gathering& gathering) {
    CacheFacts facts;
    facts.name = cache.Name();
    facts.device = cache.device;
    facts.ssd = cache.Ssd();
    facts.volume = cache.Volume();
    facts.mayBeUp = cache.mayBeUp;
    facts.entryIsUnknown = cache.entryIsUnknown || (cache.IsUp() && !cache.pair);
    if (cache.entry != nullptr) {
        facts.entry = EntryFactsOf(*cache.entry);
    }
    // Looked at on both sides of the knobs, so that a flush which begins or ends explains what they are.
    const auto ran = LookForFlush(cache, gathering);
    if (cache.IsUp()) {
        facts.kernel = GatherKernel(cache, gathering);
    } else if (cache.mayBeUp) {
        gathering.Miss(Source::kTable, facts.name,
                       "whether the cache is up is not known, some device tells none");
    }
    const bool runs = ran == false ? LookForFlush(cache, gathering) == true : ran == true;
    if (facts.entry && facts.IsFlushRecorded() && !runs) {
        facts.entry->flushState = FlushStateNow(facts.name);
    }
    facts.ssdSide = GatherSsd(cache, gathering);
    facts.volumeSide = GatherVolume(cache, gathering);
    facts.flush = GatherFlush(facts, runs);
    NoteUncounted(facts, gathering);
    return facts;
}

}  // namespace cli
