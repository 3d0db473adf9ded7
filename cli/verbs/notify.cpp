#include <fmt/format.h>

#include "caches/entry.h"
#include "caches/inventory.h"
#include "output/answer.h"
#include "support/dry_run.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct NotifyOptions {
    std::string cache;
};

const FLASHCACHE_CONFIG& EntryOf(const Cache& cache) {
    if (cache.entry == nullptr) {
        throw Failure{fmt::format("the cache {} is not configured", cache.Name()),
                      "only its configuration tells whether its SSD is missing", ""};
    }
    return *cache.entry;
}

void Notify(const Context& context, const NotifyOptions& options) {
    Inventory inventory = TakeInventory();
    const Cache& cache = Find(inventory, options.cache);
    const FLASHCACHE_CONFIG& entry = EntryOf(cache);
    const Outcome outcome = Change(
        Attempt, [&] { return Step{"VEMOFlashCacheCheckSendMissingNotification", {entry.SectionName}, {}}; },
        [&] { return VEMOFlashCacheCheckSendMissingNotification(&entry); });
    if (outcome.result != 0) {
        throw LibraryFailure(fmt::format("that {} is missing could not be announced", cache.Name()), outcome,
                             "look at the system log");
    }
    const bool sent = entry.CacheMissing != 0 && entry.Policy.WriteMode == FLASHCACHE_WRITE_BACK;
    const Record record{{{"name", "Name", cache.Name()},
                         {"ssd_missing", "SSD missing", IsSsdMissing(entry)},
                         {"announced", "Announced", sent}}};
    const bool isUnmarked = IsSsdMissing(entry) && entry.CacheMissing == 0;
    Print(One("notification", record,
              isUnmarked
                  ? "The SSD is not there, but its entry does not mark it as missing: nothing was announced."
                  : ""),
          context.json);
}

}  // namespace

Verb NotifyVerb() {
    return MakeVerb<NotifyOptions>(
        "notify", "Announce a write-back cache whose SSD is marked as missing",
        "vemocachectl notify cachedev_0",
        [](NotifyOptions& options) -> std::vector<Argument> { return {CacheArgument(options.cache)}; },
        Notify);
}

}  // namespace cli
