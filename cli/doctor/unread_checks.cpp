// What could not be told, as results of their own.
#include "doctor/check.h"

namespace cli {
namespace {

Check TellerOf(const char* code, Source source, const char* title, const char* explanation) {
    Check check{code, Severity::kUnknown, DataLoss::kUnknown, title, explanation};
    check.tellsUnread = source;
    return check;
}

}  // namespace

std::vector<Check> UnreadChecks() {
    return {
        TellerOf(
            "VFC-D101", Source::kConfiguration, "Could not read the configuration",
            "The configuration file is damaged or could not be read, so nobody knows which caches are "
            "configured. VFC-D001 tells where it is damaged. What is judged by the entries was judged by "
            "those that are left."),
        TellerOf("VFC-D102", Source::kTable, "Could not read the table of a cache device",
                 "The kernel was asked for the table of a cache device (dmsetup table) and gave none. The "
                 "device may be any cache: nothing is known of its SSD and volume, and nothing that could "
                 "lose data goes on meanwhile."),
        TellerOf(
            "VFC-D103", Source::kKnobs, "Could not read the knobs of a cache",
            "A file under /proc/sys/dev/flashcache_<ssd>+<volume> could not be read or holds no number."),
        TellerOf("VFC-D104", Source::kDirtyBlocks, "Could not count the dirty blocks of a cache",
                 "The kernel's file flashcache_progress could not be read or does not tell a number."),
        TellerOf("VFC-D105", Source::kErrors, "Could not read the error counts of a cache",
                 "The kernel's file flashcache_errors could not be read or does not tell the counts."),
        TellerOf("VFC-D106", Source::kCounters, "Could not read the counters of a cache",
                 "The kernel's file flashcache_stats could not be read or does not tell the counters. "
                 "Write-through caches, which the library cannot describe, are read all the same."),
        TellerOf("VFC-D107", Source::kAttribute, "Could not read the attribute of a cache",
                 "The kernel's file flashcache_attribute could not be read or holds neither \"none\" nor "
                 "\"force-remove\"."),
        TellerOf(
            "VFC-D108", Source::kSuperblock, "Could not read the superblock of an SSD",
            "The SSD is there, but could not be read, or it holds a cache in a layout that is not known."),
        TellerOf("VFC-D109", Source::kBlockList, "Did not count the blocks on an SSD",
                 "The SSD of a cache that is not up lists its blocks, and the list is too long to be read "
                 "without being asked, or could not be read: \"vemocachectl doctor --deep\" reads it."),
        TellerOf("VFC-D110", Source::kDatabase, "Could not tell whether an SSD is supported",
                 "The compatibility database, or the files that tell the appliance's model and build, could "
                 "not be read: \"vemocachectl ssd update\" fetches the database."),
        TellerOf(
            "VFC-D111", Source::kMemory, "Could not tell the machine's memory",
            "/proc/meminfo could not be read, or tells neither what memory there is nor what is left of it."),
        TellerOf("VFC-D112", Source::kLocks, "Could not tell whether a flush runs",
                 "The lock that a flush of the cache holds could not be looked at: its file is not ours, or "
                 "cannot be opened."),
    };
}

}  // namespace cli
