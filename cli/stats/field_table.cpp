// The fields of a cache's statistics, a row each.
#include <fmt/format.h>

#include <array>
#include <ctime>

#include "stats/derived.h"
#include "stats/fields.h"

namespace cli {
namespace {

using enum Unit;
using enum Kind;
using enum View;

constexpr bool kOpensGroup = true;

Value WallClock(const Span& /*span*/) {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    std::array<char, 32> text{};
    const std::size_t size = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return std::string(text.data(), size);
}

Value Name(const Span& span) {
    return span.now.name;
}

Value State(const Span& span) {
    return span.now.state;
}

Value Mode(const Span& span) {
    return span.now.writeMode;
}

Value Event(const Span& span) {
    return KnownText(span.event);
}

StatField Counter(const char* key, const char* heading, Unit unit, const char* counter, const char* meaning,
                  bool opensGroup = false) {
    return {key, heading, unit, kCounter, kSinceLoad, opensGroup, meaning, counter, nullptr};
}

StatField Rate(const char* key, const char* heading, const char* counter, const char* meaning) {
    return {key, heading, kPerSecond, kGauge, kInterval, false, meaning, counter, nullptr};
}

StatField Gauge(const char* key, const char* heading, Unit unit, View view, Value (*take)(const Span&),
                const char* meaning, bool opensGroup = false) {
    return {key, heading, unit, kGauge, view, opensGroup, meaning, nullptr, take};
}

StatField Word(const char* key, const char* heading, View view, Value (*take)(const Span&),
               const char* meaning) {
    return {key, heading, kNone, kState, view, false, meaning, nullptr, take};
}

// Hits, which are never told above their requests.
StatField Hits(const char* key, const char* heading, const char* counter, Value (*take)(const Span&),
               const char* meaning) {
    return {key, heading, kRequests, kCounter, kSinceLoad, false, meaning, counter, take};
}

using Fields = std::vector<StatField>;

Fields Identities() {
    return {Word("time", "Time", kInterval, WallClock, "when it was read, in UTC; only for people and logs"),
            Word("name", "Name", kBoth, Name, "the cache's name"),
            Word("state", "State", kBoth, State,
                 "running, unloaded, unknown, or gone: it was watched and is no more to be found"),
            Word("write_mode", "Mode", kSinceLoad, Mode, "how it treats writes"),
            Word("event", "Event", kInterval, Event,
                 "what keeps this reading from being compared with the one before: reset (the counters began "
                 "anew), vanished, returned"),
            Gauge("interval_seconds", "Interval", kSeconds, kInterval, IntervalSeconds,
                  "the time since the reading before, by the monotonic clock")};
}

Fields Reads() {
    return {Counter("reads", "Reads", kRequests, "reads", "read requests", kOpensGroup),
            Hits("read_hits", "Read hits", "read_hits", ReadHits, "reads that the SSD answered"),
            Gauge("read_hit_percent", "Read hit rate", kPercent, kSinceLoad, ReadHitPercent,
                  "hits among the reads that did not bypass the cache as sequential; rounded down"),
            Counter("uncached_sequential_reads", "Uncached sequential reads", kRequests,
                    "uncached_sequential_reads", "reads that bypassed the cache as sequential"),
            Counter("uncached_reads", "Uncached reads", kRequests, "uncached_reads",
                    "reads that the cache did not take up"),
            Rate("reads_per_second", "Reads/s", "reads", "read requests"),
            Gauge("interval_read_hit_percent", "Hits", kPercent, kInterval, IntervalReadHitPercent,
                  "hits among the interval's reads that did not bypass the cache as sequential"),
            Rate("uncached_sequential_reads_per_second", "Sequential reads/s", "uncached_sequential_reads",
                 "reads that bypassed the cache as sequential"),
            Rate("uncached_reads_per_second", "Uncached reads/s", "uncached_reads",
                 "reads that the cache did not take up")};
}

Fields Writes() {
    return {Counter("writes", "Writes", kRequests, "writes", "write requests", kOpensGroup),
            Hits("write_hits", "Write hits", "write_hits", WriteHits, "writes to blocks that lay on the SSD"),
            Counter("write_misses_to_ssd", "Write misses to SSD", kRequests, "write_miss_ssd",
                    "writes to other blocks that the SSD took"),
            Gauge("write_hit_percent", "Write hit rate", kPercent, kSinceLoad, WriteHitPercent,
                  "hits and misses that the SSD took, among the writes that did not bypass the cache as "
                  "sequential; rounded down"),
            Counter("dirty_write_hits", "Dirty write hits", kRequests, "dirty_write_hits",
                    "writes to blocks that were dirty already"),
            Counter("uncached_sequential_writes", "Uncached sequential writes", kRequests,
                    "uncached_sequential_writes", "writes that bypassed the cache as sequential"),
            Counter("uncached_writes", "Uncached writes", kRequests, "uncached_writes",
                    "writes that the cache did not take up"),
            Counter("requeued_uncached", "Requeued uncached requests", kRequests, "uncached_IO_requeue",
                    "requests beside the cache that had to be tried again"),
            Rate("writes_per_second", "Writes/s", "writes", "write requests"),
            Gauge("interval_write_hit_percent", "Write hits", kPercent, kInterval, IntervalWriteHitPercent,
                  "hits and misses that the SSD took, among the interval's writes that did not bypass the "
                  "cache as sequential"),
            Rate("uncached_sequential_writes_per_second", "Sequential writes/s", "uncached_sequential_writes",
                 "writes that bypassed the cache as sequential"),
            Rate("uncached_writes_per_second", "Uncached writes/s", "uncached_writes",
                 "writes that the cache did not take up")};
}

Fields Blocks() {
    return {
        Gauge("cached_bytes", "Cached", kBytes, kSinceLoad, CachedBytes, "what lies on the SSD", kOpensGroup),
        Gauge("cached_percent", "Cached part", kPercent, kSinceLoad, CachedPercent,
              "the cache's blocks that are in use; rounded down"),
        Gauge("dirty_blocks", "Dirty blocks", kBlocks, kSinceLoad, DirtyBlockCount,
              "blocks that lie on the SSD alone"),
        Gauge("dirty_bytes", "Dirty", kBytes, kBoth, DirtyBytes, "what lies on the SSD alone"),
        Gauge("dirty_percent", "Dirty part", kPercent, kBoth, DirtyPercent,
              "the cache's blocks that are dirty; rounded down, at least 0.1 when any is"),
        Counter("write_backs", "Written back", kBlocks, "cleanings",
                "dirty blocks that were written to the volume"),
        Counter("idle_write_backs", "Written back when idle", kBlocks, "fallow_cleanings",
                "dirty blocks that were written to the volume since nobody touched them"),
        Gauge("write_back_bytes_per_second", "Back/s", kBytesPerSecond, kInterval, WriteBackRate,
              "how fast dirty blocks were written to the volume"),
        Gauge("seconds_to_clean", "To clean", kSeconds, kInterval, SecondsToClean,
              "until no block is dirty, at the pace at which they became fewer since the reading before; not "
              "known while they do not"),
        Counter("replaced_blocks", "Replaced", kBlocks, "replacement", "blocks that gave way to others"),
        Counter("replaced_by_writes", "Replaced by writes", kBlocks, "write_replacement",
                "blocks that gave way to written ones"),
        Counter("invalidated_by_reads", "Invalidated by reads", kBlocks, "read_invalidates",
                "blocks that a read made the cache drop"),
        Counter("invalidated_by_writes", "Invalidated by writes", kBlocks, "write_invalidates",
                "blocks that a write or a discard made the cache drop"),
        Counter("no_room", "No room", kRequests, "no_room", "requests for which the cache had no free block"),
        Rate("replaced_blocks_per_second", "Replaced/s", "replacement", "blocks that gave way to others")};
}

Fields Devices() {
    return {Counter("ssd_reads", "SSD reads", kRequests, "ssd_reads", "reads of the SSD", kOpensGroup),
            Counter("ssd_writes", "SSD writes", kRequests, "ssd_writes", "writes to the SSD"),
            Counter("volume_reads", "Volume reads", kRequests, "disk_reads", "reads of the volume"),
            Counter("volume_writes", "Volume writes", kRequests, "disk_writes", "writes to the volume"),
            Counter("metadata_writes", "Metadata writes", kRequests, "metadata_ssd_writes",
                    "writes of the cache's own map to the SSD"),
            Counter("metadata_batches", "Metadata batches", kRequests, "metadata_batch",
                    "times that changes of the map went to the SSD together"),
            Counter("marked_dirty", "Marked dirty", kBlocks, "metadata_dirties", "blocks that became dirty"),
            Counter("marked_clean", "Marked clean", kBlocks, "metadata_cleans", "blocks that became clean"),
            Counter("queued_requests", "Queued", kRequests, "pending_enqueues",
                    "requests that waited for another of the same block"),
            Counter("queued_invalidations", "Queued invalidations", kRequests, "pending_inval",
                    "invalidations that waited for a request of the same block"),
            Counter("front_merges", "Front merges", kRequests, "front_merge",
                    "write-backs joined to one that follows on the volume"),
            Counter("back_merges", "Back merges", kRequests, "back_merge",
                    "write-backs joined to one that precedes on the volume"),
            Rate("metadata_writes_per_second", "Metadata/s", "metadata_ssd_writes",
                 "writes of the cache's own map to the SSD")};
}

Fields Errors() {
    Fields fields = {
        Counter("ssd_read_errors", "SSD read errors", kErrors, "ssd_read_errors",
                "reads that the SSD refused", kOpensGroup),
        Counter("ssd_write_errors", "SSD write errors", kErrors, "ssd_write_errors",
                "writes that the SSD refused"),
        Counter("volume_read_errors", "Volume read errors", kErrors, "disk_read_errors",
                "reads that the volume refused"),
        Counter("volume_write_errors", "Volume write errors", kErrors, "disk_write_errors",
                "writes that the volume refused"),
        Counter("memory_errors", "Memory errors", kErrors, "memory_alloc_errors",
                "requests for which the kernel had no memory"),
        Counter("write_errors", "Failed write-backs", kErrors, "write_disk_sync_errors",
                "write-backs that failed, for the volume or for the SSD; a flush may begin the count anew")};
    fields.back().view = kBoth;
    return fields;
}

}  // namespace

const std::vector<StatField>& StatFields() {
    static const Fields all = [] {
        Fields fields;
        for (const auto& group : {Identities(), Reads(), Writes(), Blocks(), Devices(), Errors()}) {
            fields.insert(fields.end(), group.begin(), group.end());
        }
        return fields;
    }();
    return all;
}

}  // namespace cli
