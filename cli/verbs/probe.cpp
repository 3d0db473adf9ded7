#include <fmt/format.h>

#include "caches/describe_entry.h"
#include "caches/kernel_state.h"
#include "caches/running.h"
#include "caches/ssd_content.h"
#include "output/answer.h"
#include "support/device.h"
#include "vemoflashcache.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct Options {
    std::string ssd;
};

// The cache that runs on the SSD; the SSD's own list of dirty blocks lags behind it.
std::optional<RunningCache> RunningOn(const std::string& ssd) {
    for (auto& cache : RunningCaches()) {
        if (cache.pair && SameDevice(cache.pair->ssd, ssd)) {
            return std::move(cache);
        }
    }
    return std::nullopt;
}

// The library tells whether there is a cache and its format; the rest is read from the SSD itself, where its
// layout is known.
Record Describe(const std::string& ssd, bool exists) {
    const auto content = exists ? ReadSsdContent(ssd) : std::nullopt;
    const auto tell = [&](auto read) { return content ? Value(read(*content)) : Value(); };
    const auto running = RunningOn(ssd);
    auto dirty = content ? content->dirtyBlocks : std::nullopt;
    if (running) {
        dirty = DirtyBlocks(running->pair->ssd, running->pair->volume);
    }
    return {{{"ssd", "SSD", ssd},
             {"has_metadata", "Holds a cache", exists},
             {"format", "Format", exists ? VersionText(VEMOFlashCacheVersionGet(ssd.c_str())) : Value()},
             {"volume", "Volume", tell([](const auto& it) { return it.volume; })},
             {"write_mode", "Mode", content ? WriteModeText(content->mode) : Value()},
             {"size_bytes", "Size", tell([](const auto& it) { return it.Bytes(); }), Format::kBytes},
             {"block_size_bytes", "Block size", tell([](const auto& it) { return it.blockSize; }),
              Format::kBytes},
             {"device", "Runs as", running ? Value(running->device) : Value()},
             {"taken_down_in_order", "Taken down in order",
              running ? Value() : tell([](const auto& it) { return it.inOrder; })},
             {"dirty_blocks", "Dirty blocks", dirty ? Value(*dirty) : Value()},
             {"dirty_bytes", "Dirty", BytesOf(dirty, content ? content->blockSize : 0), Format::kBytes}}};
}

void Probe(Context& context, const Options& options) {
    RequireBlockDevice(options.ssd, "SSD");
    const bool exists = VEMOFlashCacheCheckMetadataExist(options.ssd.c_str()) == 1;
    context.saidNo = !exists;
    Print(One("probe", Describe(options.ssd, exists)), context.json);
}

}  // namespace

Verb ProbeVerb() {
    return Question(MakeVerb<Options>(
                        "probe", "Tell whether an SSD holds a cache, and what the SSD tells of it",
                        "vemocachectl probe /dev/md3",
                        [](Options& options) -> std::vector<Argument> {
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
