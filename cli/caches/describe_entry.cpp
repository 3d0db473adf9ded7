#include "caches/describe_entry.h"

#include "caches/entry.h"

namespace cli {
namespace {

// A number of which 0 and less mean that nothing was set.
Value IfSet(std::int32_t number) {
    return number <= 0 ? Value() : Value(std::int64_t{number});
}

}  // namespace

Value WriteModeText(std::int32_t mode) {
    // Asked for a value without a text, the library would log a failure.
    const bool named = mode >= FLASHCACHE_WRITE_THRU && mode <= FLASHCACHE_WRITE_BACK_CRASH && mode != 3;
    return named ? KnownText(FlashCacheWriteModeToStr(mode)) : Value();
}

Value WriteModeText(std::int32_t mode, const FLASHCACHE_CONFIG* entry) {
    const bool isKind = entry != nullptr && mode == FLASHCACHE_WRITE_BACK &&
                        (entry->Policy.WriteMode == FLASHCACHE_WRITE_BACK_BYPASS ||
                         entry->Policy.WriteMode == FLASHCACHE_WRITE_BACK_CRASH);
    return WriteModeText(isKind ? entry->Policy.WriteMode : mode);
}

Value ReclaimPolicyText(std::int32_t policy) {
    switch (policy) {
        case FLASHCACHE_RECLAIM_LRU:
            return "lru";
        case FLASHCACHE_RECLAIM_FIFO:
            return "fifo";
        default:
            return {};
    }
}

Value VersionText(std::int32_t version) {
    switch (version) {
        case FLASHCACHE_VERSION_ORIGINAL:
            return "original";
        case FLASHCACHE_VERSION_NEW:
            return "new";
        default:
            return {};
    }
}

Record EntrySummary(const FLASHCACHE_CONFIG& entry) {
    return {{{"name", "Name", KnownText(entry.SectionName)},
             {"ssd", "SSD", KnownText(entry.SSDDevPath), Format::kDevice},
             {"volume", "Volume", KnownText(entry.SpacePath), Format::kDevice},
             {"mount_path", "Mount path", KnownText(entry.ReferencePath)},
             {"write_mode", "Mode", WriteModeText(entry.Policy.WriteMode)},
             {"size_bytes", "Size", entry.CacheSizeByte, Format::kBytes},
             {"format", "Format", VersionText(entry.CacheVersion)},
             {"loaded", "Loaded", entry.loaded != 0},
             {"flush_state", "Flush state", KnownText(entry.FlushState)}}};
}

Record EntryDetails(const FLASHCACHE_CONFIG& entry) {
    Record record = EntrySummary(entry);
    const auto& policy = entry.Policy;
    record.fields.insert(
        record.fields.end(),
        {{"reclaim_policy", "Reclaim policy", ReclaimPolicyText(policy.ReclaimPolicy), Format::kPlain, true},
         {"fallow_delay_seconds", "Fallow delay", IfSet(policy.DelaySeconds), Format::kSeconds},
         {"dirty_threshold_percent", "Dirty threshold", IfSet(policy.DirtyThreshPercent), Format::kPercent},
         {"skip_sequential", "Skips sequential I/O", policy.SkipSeqIO != 0},
         {"ssd_uuid", "SSD UUID", KnownText(entry.SSDUUID), Format::kPlain, true},
         {"ssd_id", "SSD ID", KnownText(entry.SSDID)},
         {"disk_location", "Disk location", KnownText(entry.DiskLoc)},
         {"ssd_missing", "SSD missing", IsSsdMissing(entry)},
         {"volume_missing", "Volume missing", IsVolumeMissing(entry)},
         {"creation_unfinished", "Creation unfinished", entry.CreateCritSection != 0},
         {"config_source", "Source", std::int64_t{entry.ConfigSource}}});
    return record;
}

}  // namespace cli
