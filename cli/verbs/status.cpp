#include <fmt/format.h>

#include "caches/describe.h"
#include "output/answer.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct StatusOptions {
    std::vector<std::string> caches;
};

void ShowStatus(const Context& context, const StatusOptions& options) {
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

std::vector<Argument> DeclareStatus(StatusOptions& options) {
    return {{.name = "CACHE",
             .help = fmt::format("{}; all when left out", kCacheHelp),
             .target = &options.caches,
             .completion = Completion::kCache}};
}

}  // namespace

Verb StatusVerb() {
    return Report(MakeVerb<StatusOptions>(
        "status", "Show all that is known of caches: devices, blocks, tuning, counters",
        "vemocachectl status cachedev_0", DeclareStatus, ShowStatus));
}

}  // namespace cli
