#include "caches/describe.h"
#include "output/answer.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct Options {
    std::vector<std::string> caches;
};

void Status(const Context& context, const Options& options) {
    Inventory inventory = TakeInventory();
    Answer answer{"caches", Layout::kRecords, {}, "", "There are no caches."};
    for (const auto& name : options.caches) {
        answer.records.push_back(Details(Find(inventory, name)));
    }
    if (options.caches.empty()) {
        for (const auto& cache : inventory.caches) {
            answer.records.push_back(Details(cache));
        }
    }
    answer.remark = ConfigRemark(inventory);
    Print(answer, context.json);
}

std::vector<Argument> Declare(Options& options) {
    return {{.name = "CACHE",
             .help = std::string(kCacheHelp) + "; all when left out",
             .target = &options.caches,
             .completion = Completion::kCache}};
}

}  // namespace

Verb StatusVerb() {
    return Report(MakeVerb<Options>("status",
                                    "Show all that is known of caches: devices, blocks, tuning, counters",
                                    "vemocachectl status cachedev_0", Declare, Status));
}

}  // namespace cli
