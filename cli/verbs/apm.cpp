#include <fmt/format.h>

#include "output/answer.h"
#include "support/dry_run.h"
#include "vemoflashcache.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct ApmOptions {
    std::string key;
};

std::optional<bool> IsDone(const std::string& key) {
    const auto ask = [&] {
        return YesOrNo(Attempt([&] { return VEMOFlashCacheIsApmFlushDone(key.c_str()); }));
    };
    const auto done = ask();
    return done ? done : ask();  // where there is no record at all, the first call makes one and fails
}

std::optional<bool> TellApm(const Context& context, const ApmOptions& options) {
    const auto done = IsDone(options.key);
    const Record record{{{"key", "Key", options.key}, {"done", "Flush done", KnownFlag(done)}}};
    Print(One("apm_flush", record), context.json);
    return done;
}

void GetApm(Context& context, const ApmOptions& options) {
    const auto done = TellApm(context, options);
    context.saidNo = done == false;
    context.failed = !done;
}

void Store(const Context& context, const ApmOptions& options, unsigned status) {
    const Outcome outcome = Change(
        Attempt,
        [&] { return Step{"VEMOFlashCacheApmFlushStatusSet", {options.key, std::to_string(status)}, {}}; },
        [&] { return VEMOFlashCacheApmFlushStatusSet(options.key.c_str(), status); });
    if (outcome.result != 0) {
        throw LibraryFailure(fmt::format("the record of {} could not be changed", options.key), outcome,
                             "see that /usr/vemo/etc and /var/run can be written, and try again");
    }
    if (!IsDryRun()) {  // asking makes the record where there is none
        TellApm(context, options);
    }
}

std::vector<Argument> Key(ApmOptions& options) {
    return {{.name = "KEY",
             .help = "the cache's key in the record",
             .target = &options.key,
             .required = true,
             .check = [](const std::string& key) {
                 return key.empty() || key.find_first_of("=\r\n") != std::string::npos
                            ? std::string("a key is not empty and has no \"=\" and no line ends")
                            : std::string();
             }}};
}

}  // namespace

Verb ApmVerb() {
    return MakeGroup(
        "apm", "Keep the record of the power management's flushes",
        {Question(MakeVerb<ApmOptions>("get", "Tell whether the flush of a cache is recorded as done",
                                       "vemocachectl apm get cache_1", Key, GetApm),
                  "the flush is not recorded as done"),
         MakeVerb<ApmOptions>("set", "Record the flush of a cache as done", "vemocachectl apm set cache_1",
                              Key, [](const Context& c, const ApmOptions& o) { Store(c, o, 1); }),
         MakeVerb<ApmOptions>("clear", "Record the flush of a cache as not done",
                              "vemocachectl apm clear cache_1", Key,
                              [](const Context& c, const ApmOptions& o) { Store(c, o, 0); })});
}

}  // namespace cli
