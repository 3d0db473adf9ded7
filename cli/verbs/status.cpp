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
        if (inventory.configError) {
            Note("only running caches are shown: " + inventory.configError->what);
        }
        for (const auto& cache : inventory.caches) {
            answer.records.push_back(Details(cache));
        }
    }
    Print(answer, context.json);
}

}  // namespace

void AddStatus(CLI::App& app, Context& context) {
    AddVerb<Options>(
        app, context, "status", "Show all that is known of caches: devices, blocks, tuning, counters",
        "vemocachectl status cachedev_0",
        [](CLI::App& verb, Options& options) {
            verb.add_option("CACHE", options.caches, std::string(kCacheHelp) + "; all when left out");
        },
        Status);
}

}  // namespace cli
