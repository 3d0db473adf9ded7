#include <fmt/format.h>

#include "caches/flush_lock.h"
#include "caches/kernel_state.h"
#include "caches/programs.h"
#include "flush/record.h"
#include "output/answer.h"
#include "support/dry_run.h"
#include "support/names.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct StateOptions {
    std::string cache;
    std::string state;
};

void TellState(const Context& context, const Cache& cache, const std::string& headline) {
    const Record record{{{"name", "Name", cache.Name()},
                         {"handle_state", "Handle state", HandleStateText(HandleStateOf(cache))}}};
    Print(One("state", record, headline), context.json);
}

void GetState(Context& context, const StateOptions& options) {
    Inventory inventory = TakeInventory();
    TellState(context, FindWithPair(inventory, options.cache), "");
}

void SetState(Context& context, const StateOptions& options) {
    Inventory inventory = TakeInventory();
    const Cache& cache = FindWithPair(inventory, options.cache);
    const FlushLock noFlush(cache);
    const FLASHCACHE_HANDLE_STATE state = kHandleStates.at(options.state);
    const Outcome outcome = Change(
        Attempt, [&] { return StateStep(cache.Ssd(), cache.Volume(), state); },
        [&] { return VEMOFlashCacheHandleStateSet(cache.Ssd().c_str(), cache.Volume().c_str(), state); });
    if (outcome.result != 0) {
        throw LibraryFailure(
            fmt::format("{} could not be brought to the state {}; some of its knobs may be written",
                        cache.Name(), options.state),
            outcome, fmt::format("vemocachectl state set {} {}", cache.Name(), options.state));
    }
    if (options.state == "normal") {
        MendFlushRecord(cache);
    }
    TellState(context, cache, fmt::format("{} is in the state {}.", cache.Name(), options.state));
}

std::vector<Argument> DeclareSetState(StateOptions& options) {
    return {CacheArgument(options.cache),
            {.name = "STATE",
             .help = "the state",
             .target = &options.state,
             .required = true,
             .choices = NamesOf(kHandleStates)}};
}

}  // namespace

Verb StateVerb() {
    return MakeGroup(
        "state", "Read or set the handle state in which a cache runs",
        {Report(MakeVerb<StateOptions>(
             "get", "Show the handle state that the cache's knobs make up",
             "vemocachectl state get cachedev_0",
             [](StateOptions& options) -> std::vector<Argument> { return {CacheArgument(options.cache)}; },
             GetState)),
         MakeVerb<StateOptions>("set", "Bring a cache to a handle state",
                                "vemocachectl state set cachedev_0 normal", DeclareSetState, SetState)});
}

}  // namespace cli
