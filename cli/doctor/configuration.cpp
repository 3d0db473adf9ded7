// The configuration file, its copy, and entries that get in each other's way.
#include <fmt/format.h>

#include <algorithm>

#include "caches/config_damage.h"
#include "doctor/check.h"
#include "doctor/parts.h"

namespace cli {
namespace {

std::vector<Finding> DamagedConfiguration(const Facts& facts) {
    if (!facts.config.damage) {
        return {};
    }
    const auto& damage = *facts.config.damage;
    Finding finding{
        damage.line ? fmt::format("The configuration is damaged at line {} of {}.", *damage.line, kConfigPath)
                    : fmt::format("The configuration {} cannot be read.", kConfigPath)};
    finding.details = {Number("line", "Line", damage.line), {"why", "Why", KnownText(damage.why)}};
    if (damage.line) {
        finding.commands = {fmt::format("sed -n {0}p {1}", *damage.line, kConfigPath)};
    }
    finding.commands.emplace_back("vemocachectl config list");
    finding.advice =
        "Mend the line, or restore the file from a backup. A running cache whose entry is lost can be given "
        "a "
        "new one with \"vemocachectl config adopt\", an unloaded one with \"vemocachectl load SSD VOLUME\".";
    return {finding};
}

std::vector<Finding> DifferentCopy(const Facts& facts) {
    const auto& config = facts.config;
    const bool isConfigured = std::any_of(facts.caches.begin(), facts.caches.end(),
                                          [](const CacheFacts& cache) { return cache.entry.has_value(); });
    const bool isMissing = !config.hasCopy && !config.copyIsForeign && isConfigured;
    if (config.damage || (!isMissing && !config.copyDiffers)) {
        return {};
    }
    Finding finding{isMissing ? "The temporary copy of the configuration is missing: no cache can be flushed."
                              : "The temporary copy of the configuration is not what the file holds."};
    finding.details = {{"copy_exists", "Copy exists", config.hasCopy}};
    finding.commands = {"vemocachectl config refresh"};
    finding.advice =
        "The copy is made anew from the file; a recorded flush state that only the copy has goes.";
    return {finding};
}

std::vector<Finding> ForeignCopy(const Facts& facts) {
    if (!facts.config.copyIsForeign) {
        return {};
    }
    Finding finding{"What lies at /tmp/flashcache.conf is not ours: no cache can be flushed."};
    finding.commands = {"ls -ld /tmp/flashcache.conf", "vemocachectl config refresh"};
    finding.advice =
        "See who laid it there. Refreshing puts our copy in its place; where that fails, remove it first.";
    return {finding};
}

// The devices that two entries name, each with the entries.
void AddShared(const Facts& facts, const char* role, std::string CacheFacts::* path,
               std::vector<Finding>& findings) {
    std::vector<std::string> told;
    for (const auto& one : facts.caches) {
        if (!one.entry || (one.*path).empty() ||
            std::find(told.begin(), told.end(), one.*path) != told.end()) {
            continue;
        }
        Finding finding{fmt::format("More than one entry names the {} {}.", role, one.*path)};
        for (const auto& other : facts.caches) {
            if (other.entry && other.*path == one.*path) {
                finding.caches.push_back(other.name);
                finding.commands.push_back(CommandOn("config show", other));
            }
        }
        if (finding.caches.size() > 1) {
            told.push_back(one.*path);
            finding.count = finding.caches.size();
            finding.details = {DeviceField("device", "Device", one.*path),
                               {"role", "Role", role},
                               Number("entries", "Entries", finding.caches.size())};
            finding.commands.push_back(fmt::format("vemocachectl probe {}", Quoted(one.ssd)));
            finding.advice =
                "Load none of them before it is clear which one is right. The wrong one can be forgotten "
                "with "
                "\"vemocachectl config remove ENTRY --forget-cache\", which leaves the devices alone.";
            findings.push_back(std::move(finding));
        }
    }
}

std::vector<Finding> SharedDevices(const Facts& facts) {
    std::vector<Finding> findings;
    AddShared(facts, "SSD", &CacheFacts::ssd, findings);
    AddShared(facts, "volume", &CacheFacts::volume, findings);
    return findings;
}

}  // namespace

std::vector<Check> ConfigurationChecks() {
    return {
        {"VFC-D001",
         Severity::kCritical,
         DataLoss::kUnknown,
         "The configuration is damaged",
         "The configuration file /usr/vemo/etc/flashcache.conf has a line that is none of its format, or a "
         "section without keys. The library passes over such a line, and the entry that it belonged to is "
         "gone "
         "without a word: its cache is not loaded after a restart, and cannot be flushed. A section without "
         "keys makes the whole file unreadable. While the file is damaged, nothing is created, wiped or "
         "forgotten, since nobody knows which caches there are.",
         {},
         nullptr,
         DamagedConfiguration},
        {"VFC-D002",
         Severity::kWarning,
         DataLoss::kNo,
         "The copy of the configuration differs",
         "Flushes, expansions and the reckoning of memory read /tmp/flashcache.conf, a copy of the "
         "configuration file that a restart loses and that every change of an entry makes anew. Where it is "
         "missing or older than the file, these go by entries that are not there or not true: a flush of a "
         "cache that the copy does not have fails.",
         {Source::kConfiguration},
         nullptr,
         DifferentCopy},
        {"VFC-D003",
         Severity::kWarning,
         DataLoss::kNo,
         "The copy of the configuration is foreign",
         "At /tmp/flashcache.conf, where everybody may lay files, lies something that is no regular file of "
         "root's. The library refuses to read it, and no cache can be flushed until it is gone. Somebody may "
         "have tried to have the appliance read a configuration of his own.",
         {},
         nullptr,
         ForeignCopy},
        {"VFC-D004",
         Severity::kCritical,
         DataLoss::kYes,
         "Two entries name one device",
         "Two entries of the configuration name the same SSD or the same volume. An SSD holds one cache, and "
         "a "
         "volume can have one: when the wrong entry is loaded or its cache created anew, the blocks of the "
         "other are overwritten or hidden.",
         {Source::kConfiguration},
         nullptr,
         SharedDevices},
    };
}

}  // namespace cli
