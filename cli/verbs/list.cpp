#include "caches/describe.h"
#include "output/answer.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct Options {};

void List(const Context& context, const Options&) {
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
    return Report(MakeVerb<Options>(
        "list", "List all caches, configured and running", "vemocachectl list",
        [](Options&) { return NoArguments(); }, List));
}

}  // namespace cli
