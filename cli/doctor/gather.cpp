#include "doctor/doctor.h"
#include "doctor/gather_parts.h"

namespace cli {
namespace {

// 64 MiB of an SSD's list: 512 GiB in blocks of 64 KiB.
constexpr std::uint64_t kMostBlocks = 8U << 20U;

}  // namespace

Facts GatherFacts(const GatherOptions& options) {
    const std::uint64_t mostBlocks = options.deep ? kAnyBlocks : kMostBlocks;
    Facts facts;
    const bool wasChanging = IsChangeUnderWay();
    Inventory inventory = TakeInventory({mostBlocks, false});
    facts.chosen = options.cache.empty() ? "" : Find(inventory, options.cache).Name();
    facts.config = GatherConfig(inventory);
    const Gathering gathering{mostBlocks, Mounts(), facts.unread};
    if (facts.config.damage) {
        gathering.Miss(Source::kConfiguration, "", facts.config.damage->why);
    }
    for (const auto& cache : inventory.caches) {
        facts.caches.push_back(GatherCache(cache, gathering));
    }
    GatherAppliance(facts, gathering);
    // A change that began or ended meanwhile may be seen half-way.
    const bool mayBeChanging = wasChanging || IsChangeUnderWay();
    for (auto& cache : facts.caches) {
        cache.mayBeChanging = mayBeChanging;
    }
    return facts;
}

}  // namespace cli
