#include "caches/correct.h"

#include <fmt/format.h>

#include "caches/describe_entry.h"
#include "caches/entry.h"
#include "support/device.h"

namespace cli {
namespace {

// What a cache is, by itself.
struct Truth {
    std::int32_t mode = FLASHCACHE_WRITE_BACK;
    std::uint64_t bytes = 0;
    std::int32_t format = FLASHCACHE_VERSION_UNKNOWN;
};

std::optional<Truth> TruthOf(const Cache& cache) {
    const auto content = cache.IsUp() ? ReadSsdContent(cache.Ssd(), 0) : cache.onSsd;
    if (content && SameDevice(content->volume, cache.Volume())) {
        return Truth{content->mode, content->Bytes(), content->format};
    }
    return std::nullopt;
}

// The entry knows kinds of write-back that kernel and SSD do not tell apart.
bool IsMode(std::int32_t configured, std::int32_t mode) {
    const bool isKind =
        configured == FLASHCACHE_WRITE_BACK_BYPASS || configured == FLASHCACHE_WRITE_BACK_CRASH;
    return configured == mode || (isKind && mode == FLASHCACHE_WRITE_BACK);
}

std::vector<std::string> Change(FLASHCACHE_CONFIG& entry, const Truth& truth) {
    std::vector<std::string> changes;
    if (!IsMode(entry.Policy.WriteMode, truth.mode)) {
        entry.Policy.WriteMode = truth.mode;
        changes.push_back("the mode to " + ToText({"", "", WriteModeText(truth.mode)}));
    }
    if (entry.CacheSizeByte != truth.bytes) {
        entry.CacheSizeByte = truth.bytes;
        changes.push_back("the size to " + HumanSize(truth.bytes));
    }
    if (entry.CacheVersion != truth.format) {
        entry.CacheVersion = truth.format;
        changes.push_back("the format to " + ToText({"", "", VersionText(truth.format)}));
    }
    if (entry.CacheMissing != 0 && IsBlockDevice(entry.SSDDevPath)) {
        entry.CacheMissing = 0;
        changes.emplace_back("the SSD is there");
    }
    if (entry.SpaceMissing != 0 && IsBlockDevice(entry.SpacePath)) {
        entry.SpaceMissing = 0;
        changes.emplace_back("the volume is there");
    }
    return changes;
}

}  // namespace

std::vector<std::string> CorrectEntry(const Cache& cache) {
    const auto truth = TruthOf(cache);
    if (!truth) {
        throw Failure{fmt::format("the entry {} cannot be corrected", cache.Name()),
                      fmt::format("the SSD {} does not tell a cache of {}", cache.Ssd(), cache.Volume()),
                      fmt::format("vemocachectl probe {}", cache.Ssd()), std::nullopt, FailureKind::kRefused};
    }
    // Only an entry that is wrong is written.
    std::vector<std::string> changes;
    FLASHCACHE_CONFIG copy = *cache.entry;
    if (Change(copy, *truth).empty()) {
        return changes;
    }
    ChangeEntry(cache.Name(), [&](FLASHCACHE_CONFIG& entry) { changes = Change(entry, *truth); });
    return changes;
}

}  // namespace cli
