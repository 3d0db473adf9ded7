#include "caches/describe.h"
#include "output/answer.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct ListOptions {};

void ListCaches(const Context& context, const ListOptions&) {
    const Inventory inventory = TakeInventory();
    Answer answer{"caches", Layout::kTable, {}, "", "There are no caches."};
    for (const auto& cache : inventory.caches) {
        answer.records.push_back(Summary(cache));
    }
    answer.remark = ConfigRemark(inventory);
    Print(answer, context.json);
}

}  // namespace

Verb ListVerb() {
    return Report(MakeVerb<ListOptions>(
        "list", "List all caches, configured and running", "vemocachectl list",
        [](ListOptions&) { return NoArguments(); }, ListCaches));
}

}  // namespace cli
