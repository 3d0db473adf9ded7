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

void AddProbe(CLI::App& app, Context& context) {
    AddVerb<Options>(
        app, context, "probe", "Tell whether an SSD holds a cache, and in which format",
        "vemocachectl probe /dev/md3",
        [](CLI::App& verb, Options& options) {
            verb.add_option("SSD", options.ssd, "device path of the SSD")->required();
        },
        Probe);
}

}  // namespace cli
