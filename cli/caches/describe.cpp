#include "caches/describe.h"

#include <fmt/format.h>

#include "caches/describe_entry.h"
#include "caches/kernel_state.h"
#include "caches/problems.h"
#include "stats/fields.h"

namespace cli {
namespace {

constexpr const char* kProblemKey = "problem";

// `read` of a record that may be absent.
template <typename Source, typename Read>
Value From(const Source* source, Read read) {
    return source == nullptr ? Value() : Value(read(*source));
}

template <typename Read>
Value FromStat(const Cache& cache, Read read) {
    return From(cache.stat.get(), read);
}

// What a write-back cache alone has.
template <typename Read>
Value FromWriteBack(const Cache& cache, Read read) {
    return cache.stat && cache.stat->WriteMode == FLASHCACHE_WRITE_BACK ? Value(read(*cache.stat)) : Value();
}

Value DirtyBytes(const Cache& cache, const std::optional<std::uint64_t>& blocks) {
    return BytesOf(blocks, cache.BlockSize());
}

Value Size(const Cache& cache) {
    const auto bytes = cache.Bytes();
    return bytes ? Value(*bytes) : Value();
}

// The blocks of a cache that is up, which a write-through one has without a status.
Value Blocks(const Cache& cache) {
    return cache.pair && cache.pair->blocks ? Value(*cache.pair->blocks) : Value();
}

Value CachedPercent(const FLASHCACHE_STAT& stat) {
    return stat.TotalBlocks == 0 ? Value() : Value(stat.CachedBlocks * 100 / stat.TotalBlocks);
}

void AddIdentity(Record& record, const Cache& cache) {
    record.fields.insert(record.fields.end(),
                         {{"name", "Name", cache.Name()},
                          {"state", "State", StateText(cache)},
                          {"device", "Device", KnownText(cache.device), Format::kDevice},
                          {"ssd", "SSD", KnownText(cache.Ssd()), Format::kDevice},
                          {"volume", "Volume", KnownText(cache.Volume()), Format::kDevice},
                          {"write_mode", "Mode", WriteModeOf(cache)}});
}

void AddBlocks(Record& record, const Cache& cache) {
    const auto dirty = DirtyBlocksOf(cache);
    const auto cachedBytes = [&](const auto& stat) { return stat.CachedBlocks * cache.BlockSize(); };
    record.fields.insert(record.fields.end(),
                         {{"size_bytes", "Size", Size(cache), Format::kBytes, true},
                          {"cached_bytes", "Cached", FromStat(cache, cachedBytes), Format::kBytes},
                          {"cached_percent", "Cached part", cache.stat ? CachedPercent(*cache.stat) : Value(),
                           Format::kPercent},
                          {"dirty_bytes", "Dirty", DirtyBytes(cache, dirty), Format::kBytes},
                          {"block_size_bytes", "Block size",
                           cache.pair ? BytesOf(1, cache.BlockSize()) : Value(), Format::kBytes},
                          {"total_blocks", "Blocks", Blocks(cache)},
                          {"cached_blocks", "Cached blocks",
                           FromStat(cache, [](const auto& stat) { return stat.CachedBlocks; })},
                          {"dirty_blocks", "Dirty blocks", dirty ? Value(*dirty) : Value()}});
}

void AddTuning(Record& record, const Cache& cache) {
    record.fields.insert(
        record.fields.end(),
        {{"handle_state", "Handle state", cache.IsUp() ? HandleStateText(HandleStateAtALook(cache)) : Value(),
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

// The counters of a cache, each of them not known without its status, nor where its mode has none: the
// status then holds 0.
struct Counters {
    bool known = false;
    bool countsWrites = false;
    FLASHCACHE_COUNT_STAT numbers{};

    [[nodiscard]] Value Get(std::uint64_t number) const { return known ? Value(number) : Value(); }
    [[nodiscard]] Value GetOfWrites(std::uint64_t number) const {
        return countsWrites ? Value(number) : Value();
    }
};

Counters CountersOf(const Cache& cache) {
    return cache.stat
               ? Counters{true, cache.stat->WriteMode != FLASHCACHE_WRITE_AROUND, cache.stat->CountStat}
               : Counters{};
}

void AddCounters(Record& record, const Cache& cache) {
    const auto counts = CountersOf(cache);
    const auto& numbers = counts.numbers;
    const auto first = record.fields.size();
    record.fields.insert(
        record.fields.end(),
        {DescribedField("reads", counts.Get(numbers.Reads)),
         DescribedField("read_hits", counts.Get(numbers.ReadHits)),
         DescribedField("read_hit_percent", counts.Get(numbers.ReadHitPercent)),
         DescribedField("uncached_sequential_reads", counts.Get(numbers.UncachedSeqReads)),
         DescribedField("writes", counts.Get(numbers.Writes)),
         DescribedField("write_hits", counts.GetOfWrites(numbers.WriteHits)),
         DescribedField("write_misses_to_ssd", counts.GetOfWrites(numbers.WriteMissSSD)),
         DescribedField("write_hit_percent", counts.GetOfWrites(numbers.WriteHitPercent)),
         DescribedField("uncached_sequential_writes", counts.Get(numbers.UncachedSeqWrites))});
    record.fields[first].opensGroup = true;
}

void AddConfigured(Record& record, const Cache& cache) {
    const auto* entry = cache.entry;
    record.fields.insert(
        record.fields.end(),
        {{"configured", "Configured", cache.entryIsUnknown ? Value() : Value(entry != nullptr),
          Format::kPlain, true},
         {"mount_path", "Mount path", entry == nullptr ? Value() : KnownText(entry->ReferencePath)},
         {"configured_write_mode", "Configured mode",
          entry == nullptr ? Value() : WriteModeText(entry->Policy.WriteMode)},
         {"format", "Format", entry == nullptr ? Value() : VersionText(entry->CacheVersion)},
         {"ssd_uuid", "SSD UUID", entry == nullptr ? Value() : KnownText(entry->SSDUUID)},
         {"flush_state", "Flush state", entry == nullptr ? Value() : KnownText(entry->FlushState)}});
}

Field ProblemField(const Cache& cache) {
    return {kProblemKey, "Problem", KnownText(ProblemOf(cache)), Format::kSentence, false, true};
}

}  // namespace

const char* StateText(const Cache& cache) {
    if (!IsStateKnown(cache)) {
        return "unknown";
    }
    return cache.IsUp() ? "running" : "unloaded";
}

Value WriteModeOf(const Cache& cache) {
    const auto mode = cache.Mode();
    return mode ? WriteModeText(*mode, cache.entry) : Value();
}

std::optional<std::uint64_t> DirtyBlocksOf(const Cache& cache) {
    if (cache.IsUp()) {
        return DirtyBlocks(cache.Ssd(), cache.Volume());
    }
    return cache.onSsd && cache.ForeignVolume().empty() ? cache.onSsd->dirtyBlocks : std::nullopt;
}

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
         {"dirty_bytes", "Dirty", DirtyBytes(cache, DirtyBlocksOf(cache)), Format::kBytes},
         {"read_hit_percent", "Read hits", counts.Get(counts.numbers.ReadHitPercent), Format::kPercent},
         {"write_hit_percent", "Write hits", counts.GetOfWrites(counts.numbers.WriteHitPercent),
          Format::kPercent},
         ProblemField(cache)});
    MayGiveWay(record, {"write_hit_percent", "read_hit_percent", "cached_percent", "write_mode", "volume",
                        "ssd", "size_bytes", "device", "dirty_bytes", "state"});
    return record;
}

Record Details(const Cache& cache) {
    Record record;
    AddIdentity(record, cache);
    record.fields.push_back(ProblemField(cache));
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
