#include <fmt/format.h>

#include <unistd.h>

#include "output/answer.h"
#include "stats/show.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct StatsOptions {
    std::vector<std::string> caches;
    std::string watch;
    std::int32_t count = 0;
    bool csv = false;
    bool fields = false;
};

// What the fields of the answers mean.
Answer Fields() {
    Answer answer{"fields", Layout::kTable, {}, "", ""};
    for (const auto& field : StatFields()) {
        answer.records.push_back({{{"key", "Field", field.key},
                                   {"kind", "Kind", KindText(field.kind)},
                                   {"unit", "Unit", KnownText(UnitText(field.unit))},
                                   {"told", "Told", ViewText(field.view)},
                                   {"meaning", "Meaning", field.meaning, Format::kSentence}}});
    }
    return answer;
}

Answer SinceLoadOf(const StatsOptions& options) {
    Inventory inventory = TakeInventory();
    Answer answer{"caches", Layout::kRecords, {}, "", "There are no caches."};
    for (const auto& name : options.caches) {
        answer.records.push_back(SinceLoad(ReadingOf(FindRunning(inventory, name))));
    }
    if (options.caches.empty()) {
        for (const auto& cache : inventory.caches) {
            answer.records.push_back(SinceLoad(ReadingOf(cache)));
        }
    }
    answer.remark = ConfigRemark(inventory);
    return answer;
}

void ShowStats(const Context& context, const StatsOptions& options) {
    if (options.csv && context.json) {
        throw Failure{"wrong usage", "--csv and --json are two forms of one answer",
                      "vemocachectl stats --help", std::nullopt, FailureKind::kUsage};
    }
    if (!options.watch.empty()) {
        const bool isForPeople = !options.csv && isatty(STDOUT_FILENO) == 1;
        ShowWatch(Watch(options.caches),
                  context.json  ? Lines::kJson
                  : isForPeople ? Lines::kForPeople
                                : Lines::kCsv,
                  {SecondsIn(options.watch), options.count});
        return;
    }
    const Answer answer = options.fields ? Fields() : SinceLoadOf(options);
    if (options.csv) {
        PrintCsv(answer, true);
    } else {
        Print(answer, context.json);
    }
}

std::vector<Argument> DeclareStats(StatsOptions& options) {
    return {{.name = "CACHE",
             .help = fmt::format("{}; all when left out", kCacheHelp),
             .target = &options.caches,
             .completion = Completion::kCache},
            {.name = "--watch",
             .help = "read again every so many seconds, such as 2 or 0.5, and show rates: a table on a "
                     "terminal, else lines of CSV, with --json one object a line",
             .target = &options.watch,
             .check = WhyNoSeconds,
             .valueName = "SECONDS"},
            {.name = "--count",
             .help = "with --watch: end after so many readings",
             .target = &options.count,
             .range = {1, INT32_MAX},
             .needs = {"--watch"}},
            {.name = "--csv", .help = "lines of CSV, on a terminal, too", .target = &options.csv},
            {.name = "--fields",
             .help = "tell what the fields mean",
             .target = &options.fields,
             .excludes = {"--watch", "CACHE"}}};
}

}  // namespace

Verb StatsVerb() {
    return Report(MakeVerb<StatsOptions>(
        "stats",
        "Show what the kernel has counted since a cache was loaded or its counters were set to 0 (knob "
        "zero_stats), or with --watch what goes on now. What the kernel does not tell is \"-\", in JSON null",
        "vemocachectl stats cachedev_0\n  vemocachectl stats --watch 2\n  vemocachectl stats --watch 60 "
        "--count 60 > hour.csv",
        DeclareStats, ShowStats));
}

}  // namespace cli
