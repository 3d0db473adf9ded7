#include <fmt/format.h>

#include "caches/describe_entry.h"
#include "caches/inventory.h"
#include "caches/kernel_state.h"
#include "caches/metadata.h"
#include "caches/ssd_content.h"
#include "output/answer.h"
#include "support/device.h"
#include "vemoflashcache.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct ProbeOptions {
    std::string ssd;
};

// The cache of the SSD as far as this appliance knows of it, the running one first; null: it knows of none.
const Cache* CacheOn(const Inventory& inventory, const std::string& ssd) {
    const Cache* found = nullptr;
    for (const auto& cache : inventory.caches) {
        if (SameDevice(cache.Ssd(), ssd) && (found == nullptr || cache.IsUp())) {
            found = &cache;
        }
    }
    return found;
}

Value ModeOf(const SsdContent& content, const Cache* cache) {
    const bool isIts = cache != nullptr && SameDevice(cache->Volume(), content.volume);
    return WriteModeText(content.mode, isIts ? cache->entry : nullptr);
}

// The library tells whether there is a cache and its format; the rest is read from the SSD itself, where its
// layout is known.
Record DescribeProbe(const std::string& ssd, bool exists) {
    const auto content = exists ? ReadSsdContent(ssd) : std::nullopt;
    const auto tell = [&](auto read) { return content ? Value(read(*content)) : Value(); };
    const Inventory inventory = TakeInventory();
    const Cache* cache = CacheOn(inventory, ssd);
    const bool runs = cache != nullptr && cache->IsUp();
    // While it runs, the SSD's own list of dirty blocks lags behind.
    const auto dirty = runs      ? DirtyBlocks(cache->Ssd(), cache->Volume())
                       : content ? content->dirtyBlocks
                                 : std::nullopt;
    return {{{"ssd", "SSD", ssd},
             {"has_metadata", "Holds a cache", exists},
             {"format", "Format", exists ? VersionText(VEMOFlashCacheVersionGet(ssd.c_str())) : Value()},
             {"volume", "Volume", tell([](const auto& it) { return it.volume; })},
             {"write_mode", "Mode", content ? ModeOf(*content, cache) : Value()},
             {"size_bytes", "Size", tell([](const auto& it) { return it.Bytes(); }), Format::kBytes},
             {"block_size_bytes", "Block size", tell([](const auto& it) { return it.blockSize; }),
              Format::kBytes},
             {"device", "Runs as", runs ? Value(cache->device) : Value()},
             {"taken_down_in_order", "Taken down in order",
              runs ? Value() : tell([](const auto& it) { return it.inOrder; })},
             {"dirty_blocks", "Dirty blocks", dirty ? Value(*dirty) : Value()},
             {"dirty_bytes", "Dirty", BytesOf(dirty, content ? content->blockSize : 0), Format::kBytes}}};
}

void Probe(Context& context, const ProbeOptions& options) {
    RequireBlockDevice(options.ssd, "SSD");
    const bool exists = HoldsCache(options.ssd);
    context.saidNo = !exists;
    Print(One("probe", DescribeProbe(options.ssd, exists)), context.json);
}

}  // namespace

Verb ProbeVerb() {
    return Question(MakeVerb<ProbeOptions>(
                        "probe", "Tell whether an SSD holds a cache, and what the SSD tells of it",
                        "vemocachectl probe /dev/md3",
                        [](ProbeOptions& options) -> std::vector<Argument> {
                            return {{.name = "SSD",
                                     .help = "device path of the SSD",
                                     .target = &options.ssd,
                                     .required = true,
                                     .completion = Completion::kDevice}};
                        },
                        Probe),
                    "the SSD holds no cache metadata");
}

}  // namespace cli
