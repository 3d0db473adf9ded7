#include "caches/describe.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "caches/describe_entry.h"
#include "caches/kernel_state.h"
#include "support/device.h"

namespace cli {
namespace {

constexpr const char* kProblemKey = "problem";
constexpr const char* kStaysOnSsd =
    "its SSD may hold dirty blocks: load it before the volume is used; once the volume was written they are "
    "stale, and it must be wiped or deleted";

// An entry's text; nothing when empty or not known.
Value Text(const char* text) {
    return text == nullptr ? Value() : KnownText(text);
}

// `read` of a record that may be absent.
template <typename Source, typename Read>
Value From(const Source* source, Read read) {
    return source == nullptr ? Value() : Value(read(*source));
}

template <typename Read>
Value FromStat(const Cache& cache, Read read) {
    return From(cache.stat.get(), read);
}

std::uint64_t BlockSize(const FLASHCACHE_STAT& stat) {
    return static_cast<std::uint64_t>(stat.BlockSizeKB) * 1024;
}

// What a write-back cache alone has.
template <typename Read>
Value FromWriteBack(const Cache& cache, Read read) {
    return cache.stat && cache.stat->WriteMode == FLASHCACHE_WRITE_BACK ? Value(read(*cache.stat)) : Value();
}

std::optional<std::uint64_t> Dirty(const Cache& cache) {
    return cache.IsUp() ? DirtyBlocks(cache.Ssd(), cache.Volume()) : std::nullopt;
}

Value DirtyBytes(const Cache& cache, const std::optional<std::uint64_t>& blocks) {
    return cache.stat && blocks ? Value(*blocks * BlockSize(*cache.stat)) : Value();
}

// The library cannot describe a write-through cache, although nothing is wrong with it.
bool IsWriteThrough(const Cache& cache) {
    return !cache.stat && cache.pair && cache.pair->mode == FLASHCACHE_WRITE_THRU;
}

const char* State(const Cache& cache) {
    if (!cache.IsUp()) {
        return cache.mayBeUp ? "unknown" : "unloaded";
    }
    return cache.stat || IsWriteThrough(cache) ? "running" : "unknown";
}

constexpr bool IsWriteBackMode(std::int32_t mode) {
    return mode == FLASHCACHE_WRITE_BACK || mode == FLASHCACHE_WRITE_BACK_BYPASS ||
           mode == FLASHCACHE_WRITE_BACK_CRASH;
}

std::vector<std::string> ProblemsOfUnloaded(const FLASHCACHE_CONFIG& entry) {
    std::vector<std::string> problems;
    if (entry.CreateCritSection != 0) {
        problems.emplace_back("its creation did not finish");
    }
    if (entry.CacheMissing != 0 || !IsBlockDevice(entry.SSDDevPath)) {
        problems.emplace_back("its SSD is missing");
    }
    if (entry.SpaceMissing != 0 || !IsBlockDevice(entry.SpacePath)) {
        problems.emplace_back("its volume is missing");
    }
    if (problems.empty() && IsWriteBackMode(entry.Policy.WriteMode)) {
        problems.emplace_back(kStaysOnSsd);
    }
    return problems;
}

std::vector<std::string> ProblemsOfUnknown(const Cache& cache) {
    if (!cache.IsUp()) {
        return {"whether it is loaded is not known: the table of a cache device cannot be read"};
    }
    const std::string reason = cache.statError.code == 0 ? "" : ": " + Meaning(cache.statError.code);
    return {"its status cannot be read" + reason};
}

void AddStateProblems(std::vector<std::string>& problems, const Cache& cache) {
    const auto state = HandleStateOf(cache);
    const bool flushes = cache.entry != nullptr && Text(cache.entry->FlushState) == Value("flushing");
    if (state == FLASHCACHE_HANDLE_STATE_UNKNOWN) {
        problems.emplace_back("its knobs make up no known handle state");
    } else if (state != FLASHCACHE_HANDLE_STATE_NORMAL && !flushes) {
        problems.push_back(fmt::format("it is in the handle state {}: \"vemocachectl state set {} normal\"",
                                       ToText({"", "", HandleStateText(state)}), cache.Name()));
    }
    if (AttributeOf(cache) == FLASHCACHE_ATTRIBUTE_FORCE_REMOVE) {
        problems.push_back(
            fmt::format("force-remove is on, a flush gives up blocks that cannot be written: "
                        "\"vemocachectl attribute set {} none\"",
                        cache.Name()));
    }
}

std::vector<std::string> ProblemsOfRunning(const Cache& cache) {
    std::vector<std::string> problems;
    if (cache.entryIsUnknown) {
        problems.emplace_back("whether it is configured is not known: the configuration is damaged");
    } else if (cache.entry == nullptr) {
        problems.emplace_back("not configured: it cannot be loaded after a restart");
    } else if (cache.entry->CreateCritSection != 0) {
        problems.emplace_back("its creation did not finish");
    }
    if (IsWriteBackMode(cache.Mode().value_or(FLASHCACHE_WRITE_BACK))) {
        AddStateProblems(problems, cache);
    }
    const auto size = DeviceSize(cache.device);
    const auto volume = DeviceSize(cache.Volume());
    if (size && volume && *size < *volume) {
        problems.push_back(
            fmt::format("its volume is larger than it: \"vemocachectl expand {}\"", cache.Name()));
    } else if (size && volume && *size > *volume) {
        problems.emplace_back("its volume has shrunk below its size");
    }
    return problems;
}

std::string Problem(const Cache& cache) {
    const bool known = cache.IsUp() ? cache.stat || IsWriteThrough(cache) : !cache.mayBeUp;
    const auto problems = !known         ? ProblemsOfUnknown(cache)
                          : cache.IsUp() ? ProblemsOfRunning(cache)
                                         : ProblemsOfUnloaded(*cache.entry);
    return fmt::format("{}", fmt::join(problems, "; "));
}

Value Size(const Cache& cache) {
    if (cache.stat) {
        return cache.stat->TotalBlocks * BlockSize(*cache.stat);
    }
    return From(cache.entry, [](const auto& entry) { return entry.CacheSizeByte; });
}

Value CachedPercent(const FLASHCACHE_STAT& stat) {
    return stat.TotalBlocks == 0 ? Value() : Value(stat.CachedBlocks * 100 / stat.TotalBlocks);
}

Value WriteMode(const Cache& cache) {
    // The kernel knows one write-back; the entry tells which kind.
    const auto mode = cache.Mode();
    if (!mode) {
        return {};
    }
    const bool isKind = cache.entry != nullptr && *mode == FLASHCACHE_WRITE_BACK &&
                        IsWriteBackMode(cache.entry->Policy.WriteMode);
    return WriteModeText(isKind ? cache.entry->Policy.WriteMode : *mode);
}

void AddIdentity(Record& record, const Cache& cache) {
    record.fields.insert(record.fields.end(),
                         {{"name", "Name", cache.Name()},
                          {"state", "State", State(cache)},
                          {"device", "Device", KnownText(cache.device), Format::kDevice},
                          {"ssd", "SSD", KnownText(cache.Ssd()), Format::kDevice},
                          {"volume", "Volume", KnownText(cache.Volume()), Format::kDevice},
                          {"write_mode", "Mode", WriteMode(cache)}});
}

void AddBlocks(Record& record, const Cache& cache) {
    const auto dirty = Dirty(cache);
    const auto cachedBytes = [](const auto& stat) { return stat.CachedBlocks * BlockSize(stat); };
    record.fields.insert(
        record.fields.end(),
        {{"size_bytes", "Size", Size(cache), Format::kBytes, true},
         {"cached_bytes", "Cached", FromStat(cache, cachedBytes), Format::kBytes},
         {"cached_percent", "Cached part", cache.stat ? CachedPercent(*cache.stat) : Value(),
          Format::kPercent},
         {"dirty_bytes", "Dirty", DirtyBytes(cache, dirty), Format::kBytes},
         {"block_size_bytes", "Block size", FromStat(cache, BlockSize), Format::kBytes},
         {"total_blocks", "Blocks", FromStat(cache, [](const auto& stat) { return stat.TotalBlocks; })},
         {"cached_blocks", "Cached blocks",
          FromStat(cache, [](const auto& stat) { return stat.CachedBlocks; })},
         {"dirty_blocks", "Dirty blocks", dirty ? Value(*dirty) : Value()}});
}

void AddTuning(Record& record, const Cache& cache) {
    record.fields.insert(
        record.fields.end(),
        {{"handle_state", "Handle state", cache.IsUp() ? HandleStateText(HandleStateOf(cache)) : Value(),
          Format::kPlain, true},
         {"attribute", "Attribute", cache.IsUp() ? AttributeText(AttributeOf(cache)) : Value()},
         {"reclaim_policy", "Reclaim policy",
          cache.stat ? ReclaimPolicyText(cache.stat->ReclaimPolicy) : Value()},
         {"fallow_delay_seconds", "Fallow delay",
          FromWriteBack(cache, [](const auto& stat) { return std::int64_t{stat.FallowDelay}; }),
          Format::kSeconds},
         {"dirty_threshold_percent", "Dirty threshold",
          FromWriteBack(cache, [](const auto& stat) { return std::int64_t{stat.DirtyThreshPct}; }),
          Format::kPercent},
         {"supports_pinning", "Supports pinning",
          FromStat(cache, [](const auto& stat) { return stat.SupportPin != 0; })}});
}

// The counters of a cache, each of them not known without its status.
struct Counters {
    bool known = false;
    FLASHCACHE_COUNT_STAT numbers{};

    [[nodiscard]] Value Get(std::uint64_t number) const { return known ? Value(number) : Value(); }
};

Counters CountersOf(const Cache& cache) {
    return cache.stat ? Counters{true, cache.stat->CountStat} : Counters{};
}

void AddCounters(Record& record, const Cache& cache) {
    const auto counts = CountersOf(cache);
    record.fields.insert(
        record.fields.end(),
        {{"reads", "Reads", counts.Get(counts.numbers.Reads), Format::kPlain, true},
         {"read_hits", "Read hits", counts.Get(counts.numbers.ReadHits)},
         {"read_hit_percent", "Read hit rate", counts.Get(counts.numbers.ReadHitPercent), Format::kPercent},
         {"uncached_sequential_reads", "Uncached sequential reads",
          counts.Get(counts.numbers.UncachedSeqReads)},
         {"writes", "Writes", counts.Get(counts.numbers.Writes)},
         {"write_hits", "Write hits", counts.Get(counts.numbers.WriteHits)},
         {"write_misses_to_ssd", "Write misses to SSD", counts.Get(counts.numbers.WriteMissSSD)},
         {"write_hit_percent", "Write hit rate", counts.Get(counts.numbers.WriteHitPercent),
          Format::kPercent},
         {"uncached_sequential_writes", "Uncached sequential writes",
          counts.Get(counts.numbers.UncachedSeqWrites)}});
}

void AddConfigured(Record& record, const Cache& cache) {
    const auto* entry = cache.entry;
    record.fields.insert(
        record.fields.end(),
        {{"configured", "Configured", cache.entryIsUnknown ? Value() : Value(entry != nullptr),
          Format::kPlain, true},
         {"mount_path", "Mount path", entry == nullptr ? Value() : Text(entry->ReferencePath)},
         {"configured_write_mode", "Configured mode",
          entry == nullptr ? Value() : WriteModeText(entry->Policy.WriteMode)},
         {"format", "Format", entry == nullptr ? Value() : VersionText(entry->CacheVersion)},
         {"ssd_uuid", "SSD UUID", entry == nullptr ? Value() : Text(entry->SSDUUID)},
         {"flush_state", "Flush state", entry == nullptr ? Value() : Text(entry->FlushState)}});
}

Field ProblemOf(const Cache& cache) {
    return {kProblemKey, "Problem", KnownText(Problem(cache)), Format::kPlain, false, true};
}

}  // namespace

Record Identity(const Cache& cache) {
    return {{{"name", "Name", cache.Name()},
             {"device", "Device", KnownText(cache.device), Format::kDevice},
             {"ssd", "SSD", KnownText(cache.Ssd()), Format::kDevice},
             {"volume", "Volume", KnownText(cache.Volume()), Format::kDevice}}};
}

Record Summary(const Cache& cache) {
    Record record;
    AddIdentity(record, cache);
    const auto counts = CountersOf(cache);
    record.fields.insert(
        record.fields.end(),
        {{"size_bytes", "Size", Size(cache), Format::kBytes},
         {"cached_percent", "Cached", cache.stat ? CachedPercent(*cache.stat) : Value(), Format::kPercent},
         {"dirty_bytes", "Dirty", DirtyBytes(cache, Dirty(cache)), Format::kBytes},
         {"read_hit_percent", "Read hits", counts.Get(counts.numbers.ReadHitPercent), Format::kPercent},
         {"write_hit_percent", "Write hits", counts.Get(counts.numbers.WriteHitPercent), Format::kPercent},
         ProblemOf(cache)});
    return record;
}

Record Details(const Cache& cache) {
    Record record;
    AddIdentity(record, cache);
    record.fields.push_back(ProblemOf(cache));
    AddBlocks(record, cache);
    AddTuning(record, cache);
    AddCounters(record, cache);
    AddConfigured(record, cache);
    return record;
}

void SetProblem(Record& record, const std::string& problem) {
    for (auto& field : record.fields) {
        if (field.key == kProblemKey) {
            field.value = problem;
        }
    }
}

}  // namespace cli
