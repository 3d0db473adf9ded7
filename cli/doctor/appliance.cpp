// What concerns no single cache: locks, memory, pins, files that were left behind.
#include <fmt/ranges.h>

#include "caches/memory_need.h"
#include "doctor/check.h"
#include "doctor/parts.h"

namespace cli {
namespace {

std::vector<Finding> DeadFileRun(const Facts& facts) {
    if (!facts.deadFileRun) {
        return {};
    }
    Finding finding{"The marker of a dead run of the file statistics keeps others from running."};
    finding.details = {{"process", "Process", KnownText(*facts.deadFileRun)}};
    finding.commands = {"vemocachectl filestat clear"};
    finding.advice = "The command takes the marker away, unless a run is in progress.";
    return {finding};
}

std::vector<Finding> OrphanedLocks(const Facts& facts) {
    std::vector<Finding> findings;
    for (const auto& lock : facts.locks) {
        if (lock.holders.empty()) {
            continue;
        }
        Finding finding{fmt::format("{} holds the lock {}{}.", fmt::join(lock.holders, ", "), lock.path,
                                    lock.signerIsGone ? ", though the process that took it is gone" : "")};
        finding.severity = lock.signerIsGone ? Severity::kWarning : Severity::kInfo;
        finding.details = {{"path", "Lock", lock.path},
                           {"holders", "Held by", lock.holders},
                           {"signature", "Taken by", KnownText(lock.signature)}};
        finding.count = lock.holders.size();
        finding.advice = lock.signerIsGone
                             ? "A program that it started may work on. Others wait until that ends."
                             : "Others wait for it.";
        findings.push_back(std::move(finding));
    }
    return findings;
}

std::vector<Finding> ForeignLocks(const Facts& facts) {
    std::vector<Finding> findings;
    for (const auto& lock : facts.locks) {
        if (!lock.isForeign) {
            continue;
        }
        Finding finding{fmt::format("What lies at {} is not ours.", lock.path)};
        finding.details = {{"path", "Lock", lock.path}};
        finding.commands = {fmt::format("ls -ld {}", Quoted(lock.path))};
        finding.advice = "See who laid it there, and remove it: until then what needs this lock is refused.";
        findings.push_back(std::move(finding));
    }
    return findings;
}

std::vector<Finding> StrayPins(const Facts& facts) {
    std::vector<Finding> findings;
    for (const auto& mount : facts.strayPins) {
        Finding finding{fmt::format("Files are pinned on {}, where no volume is.", mount)};
        finding.details = {{"mount_path", "Mount path", mount}};
        finding.commands = {"vemocachectl pin list-support"};
        finding.advice = fmt::format(
            "If the volume is gone for good: \"vemocachectl pin bitmap {} --delete\" forgets its pins.",
            Quoted(mount));
        findings.push_back(std::move(finding));
    }
    return findings;
}

std::vector<Finding> MemoryShort(const Facts& facts) {
    std::uint64_t needed = kMemoryOfAllCaches;
    std::uint64_t toCome = 0;
    bool isConfigured = false;
    for (const auto& cache : facts.caches) {
        const std::uint64_t need = cache.entry ? MemoryOfCache(cache.entry->format, cache.entry->bytes) : 0;
        needed += need;
        toCome += cache.IsUp() ? 0 : need;
        isConfigured = isConfigured || cache.entry.has_value();
    }
    const std::uint64_t total = facts.memory.total.value_or(UINT64_MAX);
    const bool isHalf = needed > total / 2;
    const bool isNoRoom = toCome > facts.memory.available.value_or(UINT64_MAX);
    if (!isConfigured || (!isHalf && !isNoRoom)) {
        return {};
    }
    Finding finding{isHalf ? fmt::format("The configured caches need {} of the machine's {} of memory.",
                                         HumanSize(needed), HumanSize(total))
                           : fmt::format("The caches that are not loaded need {} of memory, and {} are left.",
                                         HumanSize(toCome), HumanSize(facts.memory.available.value_or(0)))};
    finding.severity = needed > total ? Severity::kCritical : Severity::kWarning;
    finding.details = {Number("needed_bytes", "Needed", needed, Format::kBytes),
                       Number("needed_to_load_bytes", "Needed to load", toCome, Format::kBytes),
                       Number("total_bytes", "Memory", facts.memory.total, Format::kBytes),
                       Number("available_bytes", "Available", facts.memory.available, Format::kBytes)};
    finding.commands = {"vemocachectl memory"};
    finding.advice = "Smaller caches, or the new format with its larger blocks, need less; or add memory.";
    return {finding};
}

std::vector<Finding> Overrides(const Facts& facts) {
    std::vector<Finding> findings;
    for (const auto& path : facts.overrides) {
        const bool onlyLogs = path == "/tmp/cache-debug-remove";
        const bool isSize = path == "/flashcache-create-64mb";
        Finding finding{fmt::format("{} exists: {}.", path,
                                    onlyLogs ? "flushes log more than they must"
                                    : isSize ? "every new cache is 64 MiB large"
                                             : "it stands in for the counters of every cache")};
        finding.severity = onlyLogs ? Severity::kInfo : Severity::kWarning;
        finding.details = {{"path", "File", path}};
        finding.commands = {fmt::format("ls -l {}", path)};
        finding.advice = fmt::format("It is meant for tests and support: \"rm {}\" ends it.", path);
        findings.push_back(std::move(finding));
    }
    return findings;
}

}  // namespace

std::vector<Check> ApplianceChecks() {
    return {
        {"VFC-D090",
         Severity::kWarning,
         DataLoss::kNo,
         "A dead run's marker is left",
         "A run of the file statistics marks that it is in progress with the file "
         "/tmp/flashcache_file_statistics_processing, and takes it away at its end. The process that the "
         "marker names is gone: it was killed. As long as the marker is there, no run is begun.",
         {},
         nullptr,
         DeadFileRun},
        {"VFC-D091",
         Severity::kWarning,
         DataLoss::kNo,
         "A lock is held",
         "A process holds the lock under which caches are changed or entries written. As long as the process "
         "that took it works, that is an info: the change of a cache may take hours. A warning it is when "
         "that "
         "process is gone and a program that it had started holds the lock on.",
         {},
         nullptr,
         OrphanedLocks},
        {"VFC-D092",
         Severity::kWarning,
         DataLoss::kNo,
         "A lock file is not ours",
         "In a folder where everybody may lay files, something lies in the place of a lock file that is no "
         "regular file of root's. It is never locked or written through: what needs the lock is refused.",
         {},
         nullptr,
         ForeignLocks},
        {"VFC-D093",
         Severity::kWarning,
         DataLoss::kNo,
         "Pinned files of a volume that is gone",
         "The pin tool lists files of a mount path at which nothing is mounted and that no configured cache "
         "names. When another volume is mounted there one day, its files of the same names would be pinned.",
         {Source::kConfiguration},
         nullptr,
         StrayPins},
        {"VFC-D094",
         Severity::kWarning,
         DataLoss::kNo,
         "The caches need much memory",
         "The kernel keeps a record of each block of a cache in memory. Together the configured caches need "
         "more than half of what the machine has, or those that are not loaded need more than is left: "
         "loading "
         "them may fail, or leave too little to programs. Critical it is when they need more than there is. "
         "Pin bitmaps are not reckoned: \"vemocachectl memory\" does, with the pin tool.",
         {Source::kConfiguration, Source::kMemory},
         nullptr,
         MemoryShort},
        {"VFC-D095",
         Severity::kWarning,
         DataLoss::kNo,
         "A file for tests changes what is done",
         "A marker file that is meant for tests and support is there: /tmp/flashcache_stats stands in for "
         "the "
         "counters of every cache, /flashcache-create-64mb makes each new cache 64 MiB large, "
         "/tmp/cache-debug-remove lets flushes log more.",
         {},
         nullptr,
         Overrides},
    };
}

}  // namespace cli
