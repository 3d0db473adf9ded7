#include <fmt/format.h>

#include "caches/describe_entry.h"
#include "output/answer.h"
#include "support/device.h"
#include "vemoflashcache.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct Options {
    std::string ssd;
};

void Probe(const Context& context, const Options& options) {
    RequireBlockDevice(options.ssd, "SSD");
    const bool exists = VEMOFlashCacheCheckMetadataExist(options.ssd.c_str()) == 1;
    const Value format = exists ? VersionText(VEMOFlashCacheVersionGet(options.ssd.c_str())) : Value();
    const Record record{{{"ssd", "SSD", options.ssd},
                         {"has_metadata", "Holds a cache", exists},
                         {"format", "Format", format}}};
    Print(One("probe", record), context.json);
}

}  // namespace

Verb ProbeVerb() {
    return MakeVerb<Options>(
        "probe", "Tell whether an SSD holds a cache, and in which format", "vemocachectl probe /dev/md3",
        [](Options& options) -> std::vector<Argument> {
            return {{.name = "SSD",
                     .help = "device path of the SSD",
                     .target = &options.ssd,
                     .required = true,
                     .completion = Completion::kDevice}};
        },
        Probe);
}

}  // namespace cli
