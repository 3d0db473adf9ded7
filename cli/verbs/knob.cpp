#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "caches/inventory.h"
#include "caches/programs.h"
#include "caches/tuning.h"
#include "output/answer.h"
#include "support/dry_run.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct Knob {
    FLASHCACHE_SYSCTL number;
    const char* name;
    const char* meaning;
    Range range = {0, INT32_MAX};
};

constexpr Range kSwitch = {0, 1};

constexpr std::array kKnobs = {
    Knob{FLASHCACHE_SYSCTL_FALLOW_DELAY,
         "fallow_delay",
         "seconds before an idle dirty block is cleaned",
         {0, kLongestFallowDelay}},
    Knob{FLASHCACHE_SYSCTL_FALLOW_CLEAN_SPEED,
         "fallow_clean_speed",
         "how fast idle dirty blocks are cleaned",
         {1, 100}},
    Knob{FLASHCACHE_SYSCTL_CACHE_ALL, "cache_all", "1: new blocks enter the cache", kSwitch},
    Knob{FLASHCACHE_SYSCTL_FAST_REMOVE, "fast_remove", "1: removal leaves dirty blocks on the SSD", kSwitch},
    Knob{FLASHCACHE_SYSCTL_ZERO_STATS, "zero_stats", "1: sets the counters to 0", kSwitch},
    Knob{FLASHCACHE_SYSCTL_RECLAIM_POLICY, "reclaim_policy", "0: fifo, 1: lru", kSwitch},
    Knob{FLASHCACHE_SYSCTL_PID_EXPIRY_SECS,
         "pid_expiry_secs",
         "seconds that a process stays listed",
         {1, INT32_MAX}},
    Knob{FLASHCACHE_SYSCTL_MAX_PIDS, "max_pids", "most processes listed", {1, INT32_MAX}},
    Knob{FLASHCACHE_SYSCTL_DO_PID_EXPIRY, "do_pid_expiry", "1: listed processes expire", kSwitch},
    Knob{FLASHCACHE_SYSCTL_MAX_CLEAN_IOS_SET,
         "max_clean_ios_set",
         "cleaning writes at once in a set",
         {1, INT32_MAX}},
    Knob{FLASHCACHE_SYSCTL_MAX_CLEAN_IOS_TOTAL,
         "max_clean_ios_total",
         "cleaning writes at once in all",
         {1, INT32_MAX}},
    Knob{FLASHCACHE_SYSCTL_DIRTY_THRESH_PCT,
         "dirty_thresh_pct",
         "percent of a set that may be dirty",
         {0, 100}},
    Knob{FLASHCACHE_SYSCTL_STOP_SYNC, "stop_sync", "1: stops a running sync", kSwitch},
    Knob{FLASHCACHE_SYSCTL_DO_SYNC, "do_sync", "1: writes all dirty blocks back", kSwitch},
    Knob{FLASHCACHE_SYSCTL_IO_LATENCY_HIST, "io_latency_hist", "1: counts I/O by latency", kSwitch},
    Knob{FLASHCACHE_SYSCTL_SKIP_SEQ_THRESH_KB, "skip_seq_thresh_kb",
         "KiB from which sequential I/O bypasses it, 0: never"},
};

struct KnobOptions {
    std::string cache;
    std::vector<std::string> knobs;  // get
    std::string knob;                // set
    std::int32_t value = 0;
};

const Knob& Named(const std::string& name) {
    // The parser has refused every other name.
    return *std::find_if(kKnobs.begin(), kKnobs.end(), [&](const Knob& knob) { return name == knob.name; });
}

std::vector<std::string> AllNames() {
    std::vector<std::string> names;
    names.reserve(kKnobs.size());
    for (const auto& knob : kKnobs) {
        names.emplace_back(knob.name);
    }
    return names;
}

struct KnobReading {
    Outcome outcome;
    std::int32_t value = -1;
};

KnobReading Read(const Cache& cache, const Knob& knob) {
    KnobReading reading;
    reading.outcome = Attempt([&] {
        return VEMOFlashCacheSysctlGet(knob.number, cache.Ssd().c_str(), cache.Volume().c_str(),
                                       &reading.value);
    });
    return reading;
}

// What was read; not known when it could not be.
Value ValueOf(const KnobReading& reading) {
    if (reading.outcome.result != 0) {
        return {};
    }
    return std::int64_t{reading.value};
}

Record DescribeKnob(const Knob& knob, const Value& value) {
    Record record{
        {{"name", "Knob", knob.name}, {"value", "Value", value}, {"meaning", "Meaning", knob.meaning}}};
    MayGiveWay(record, {"meaning"});
    return record;
}

void GetKnob(Context& context, const KnobOptions& options) {
    Inventory inventory = TakeInventory();
    const Cache& cache = FindWithPair(inventory, options.cache);
    Answer answer{"knobs", Layout::kTable, {}, "", ""};
    for (const auto& name : options.knobs.empty() ? AllNames() : options.knobs) {
        const Knob& knob = Named(name);
        const KnobReading reading = Read(cache, knob);
        if (reading.outcome.result != 0 && !options.knobs.empty()) {
            throw LibraryFailure(fmt::format("the knob {} of {} could not be read", name, cache.Name()),
                                 reading.outcome, fmt::format("vemocachectl knob get {}", cache.Name()));
        }
        answer.records.push_back(DescribeKnob(knob, ValueOf(reading)));
    }
    Print(answer, context.json);
}

void RequireInRange(const Knob& knob, std::int32_t value) {
    if (value < knob.range.lowest || value > knob.range.highest) {
        throw Failure{fmt::format("{} is no value for the knob {}", value, knob.name), knob.meaning,
                      fmt::format("name a value from {} to {}", knob.range.lowest, knob.range.highest),
                      std::nullopt, FailureKind::kUsage};
    }
}

void SetKnob(Context& context, const KnobOptions& options) {
    Inventory inventory = TakeInventory();
    const Cache& cache = FindWithPair(inventory, options.cache);
    const Knob& knob = Named(options.knob);
    RequireInRange(knob, options.value);
    const std::string ssd = cache.Ssd();
    const std::string volume = cache.Volume();
    const Outcome outcome = Change(
        Attempt,
        [&] {
            return Step{"VEMOFlashCacheDoSysctlSet",
                        {knob.name, std::to_string(options.value), ssd, volume},
                        WritingKnob(knob.name, options.value, ssd, volume)};
        },
        [&] { return VEMOFlashCacheDoSysctlSet(knob.number, options.value, ssd.c_str(), volume.c_str()); });
    if (outcome.result != 0) {
        throw LibraryFailure(
            fmt::format("the knob {} of {} could not be set to {}", knob.name, cache.Name(), options.value),
            outcome, "the kernel did not take the value; the old one stays");
    }
    Print(One("knob", DescribeKnob(knob, ValueOf(Read(cache, knob))),
              fmt::format("{} of {} was set; until the next load.", knob.name, cache.Name())),
          context.json);
}

std::vector<Argument> DeclareGet(KnobOptions& options) {
    return {CacheArgument(options.cache),
            {.name = "KNOB",
             .help = "knobs by name; all when left out",
             .target = &options.knobs,
             .choices = AllNames()}};
}

std::vector<Argument> DeclareSetKnob(KnobOptions& options) {
    return {CacheArgument(options.cache),
            {.name = "KNOB",
             .help = "the knob by name",
             .target = &options.knob,
             .required = true,
             .choices = AllNames()},
            {.name = "VALUE", .help = "a number", .target = &options.value, .required = true}};
}

}  // namespace

Verb KnobVerb() {
    return MakeGroup("knob", "Read or write the run-time knobs of a running cache",
                     {Report(MakeVerb<KnobOptions>("get", "Show knobs and their meaning",
                                                   "vemocachectl knob get cachedev_0 dirty_thresh_pct",
                                                   DeclareGet, GetKnob)),
                      MakeVerb<KnobOptions>(
                          "set", "Write a knob; the value holds until the cache is loaded anew",
                          "vemocachectl knob set cachedev_0 dirty_thresh_pct 40", DeclareSetKnob, SetKnob)});
}

}  // namespace cli
