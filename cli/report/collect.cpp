#include "report/collect.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fmt/format.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <exception>
#include <memory>
#include <sstream>

#include "caches/config_damage.h"
#include "caches/running.h"
#include "doctor/doctor.h"
#include "report/patience.h"
#include "support/device.h"
#include "support/failure.h"

namespace cli {
namespace {

constexpr std::uint64_t kMostLog = 4U << 20U;
constexpr std::size_t kMostLogLines = 2000;

// Files of the appliance as a whole; what is not there is told so.
constexpr std::array kFiles = {kConfigPath,
                               "/tmp/flashcache.conf",
                               "/usr/vemo/etc/flashcache_ssd_sn_list.conf",
                               "/usr/vemo/etc/flashcache_pin_file.conf",
                               "/usr/vemo/etc/vemocachectl/doctor.mutes",
                               "/tmp/flashcache_file_statistics_processing",
                               "/tmp/flashcache_stats",
                               "/flashcache-create-64mb",
                               "/tmp/cache-debug-remove",
                               "/etc.defaults/VERSION",
                               "/etc.defaults/vemoinfo.conf",
                               "/proc/modules",
                               "/proc/meminfo"};

// Does a part of the work; where that throws, the rest goes on.
void Part(Collected& all, const std::string& what, const std::function<void()>& work) {
    try {
        work();
    } catch (const Failure& failure) {
        all.unmade.push_back(fmt::format("{}: {}: {}", what, failure.what, failure.why));
    } catch (const std::exception& error) {
        all.unmade.push_back(fmt::format("{}: {}", what, error.what()));
    }
}

std::vector<std::string> NamesIn(const std::string& folder) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(folder.c_str()), closedir);
    while (const dirent* entry = stream ? readdir(stream.get()) : nullptr) {
        if (entry->d_name[0] != '.') {
            names.emplace_back(entry->d_name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

void AddFolder(Collected& all, const std::string& folder) {
    const auto names = NamesIn(folder);
    if (names.empty()) {
        all.items.push_back(ReadItem(folder));
    }
    for (const auto& name : names) {
        all.items.push_back(ReadItem(fmt::format("{}/{}", folder, name)));
    }
}

void AddItemsOf(Collected& all, const CacheFacts& cache, double patience) {
    const std::string pair = KernelName(cache.ssd, cache.volume);
    if (cache.IsUp()) {
        const std::string name = cache.device.substr(cache.device.rfind('/') + 1);
        all.items.push_back(RunItem({"dmsetup", "table", name}, patience));
        all.items.push_back(RunItem({"dmsetup", "status", name}, patience));
    }
    if (cache.IsUp() && !pair.empty()) {
        AddFolder(all, "/proc/flashcache/" + pair);
        AddFolder(all, "/proc/sys/dev/flashcache_" + pair);
    }
    if (!pair.empty()) {
        all.items.push_back(ReadItem(fmt::format("/usr/vemo/etc/vemocachectl/{}.unloaded", pair)));
        all.items.push_back(ReadItem(fmt::format("/run/lock/vemocachectl-flush-{}.lock", pair)));
    }
    if (const auto bytes = cache.ssdSide.isThere ? DeviceSize(cache.ssd) : std::nullopt) {
        all.ssdBytes[cache.ssd] = *bytes;
    }
}

// What the kernel shows of caches of which nothing else is known.
void AddUnknownCaches(Collected& all, double patience) {
    all.items.push_back(RunItem({"dmsetup", "table"}, patience));
    for (const auto& pair : NamesIn("/proc/flashcache")) {
        AddFolder(all, "/proc/flashcache/" + pair);
        AddFolder(all, "/proc/sys/dev/flashcache_" + pair);
    }
}

void AddItems(Collected& all, double patience) {
    for (const char* path : kFiles) {
        all.items.push_back(ReadItem(path));
    }
    for (const auto& lock : all.facts.locks) {
        all.items.push_back(ReadItem(lock.path));
    }
    for (const auto& cache : all.facts.caches) {
        AddItemsOf(all, cache, patience);
    }
    if (!all.unmade.empty()) {
        AddUnknownCaches(all, patience);
    }
    for (const auto& mount : Mounts()) {
        if (mount.device.find("/cachedev") != std::string::npos) {
            all.mounts.emplace(mount.folder, mount.device);
        }
    }
    std::vector<std::string> told;
    std::erase_if(all.items, [&](const ReportItem& item) {
        const bool isTold = std::find(told.begin(), told.end(), item.name) != told.end();
        told.push_back(item.name);
        return isTold;
    });
}

// Lines of others are none of a support case's business.
void AddLog(Collected& all) {
    ReportItem log = ReadItem("/var/log/messages", kMostLog);
    if (!log.error.empty()) {
        all.items.push_back(log);
        log = ReadItem("/var/log/syslog", kMostLog);
    }
    std::istringstream lines(log.text);
    for (std::string line; std::getline(lines, line);) {
        const bool isOurs = line.find("flashcache") != std::string::npos ||
                            line.find("vemocache") != std::string::npos ||
                            line.find("cachedev_") != std::string::npos;
        if (isOurs) {
            all.log.push_back(line);
        }
    }
    if (all.log.size() > kMostLogLines) {
        all.log.erase(all.log.begin(), all.log.end() - static_cast<std::ptrdiff_t>(kMostLogLines));
    }
    log.text.clear();  // its lines stand on their own
    all.items.push_back(std::move(log));
}

void AddVersions(Collected& all) {
    utsname machine{};
    uname(&machine);
    all.host = machine.nodename;
    all.kernel = machine.release;
    all.machine = machine.machine;
    Dl_info library{};
    if (dladdr(reinterpret_cast<void*>(&VEMOFlashCacheStatGet), &library) != 0) {
        const std::unique_ptr<char, decltype(&std::free)> path(realpath(library.dli_fname, nullptr),
                                                               std::free);
        const std::string whole = path ? path.get() : library.dli_fname;
        all.library = whole.substr(whole.rfind('/') + 1);
    }
}

// A tool that hangs, and the library waits for, must not take the whole report with it.
Facts FactsInTime(double patience) {
    const auto facts = std::make_shared<Facts>();
    if (!DoneInTime(std::chrono::duration<double>(patience), [facts] { *facts = GatherFacts(); })) {
        throw Failure{fmt::format("no answer within {:g} seconds", patience),
                      "a tool or a device that is asked hangs", ""};
    }
    return std::move(*facts);
}

}  // namespace

Collected Collect(const CollectOptions& options, const TellStep& tell) {
    constexpr double kBefore = 0.1;  // shares of the time that the steps are taken for
    constexpr double kAfter = 0.95;
    Collected all;
    all.time = std::time(nullptr);
    all.seconds = options.seconds;
    tell("findings", 0);
    AddVersions(all);
    Part(all, "findings", [&] {
        all.facts = FactsInTime(options.patience);
        all.findings = Diagnose(all.facts);
        const auto everything = all.findings;
        all.mutes = ReadMutes(all.time);
        static_cast<void>(ApplyMutes(all.findings, everything, all.time));
    });
    tell("files", kBefore / 2);
    Part(all, "files", [&] { AddItems(all, options.patience); });
    const bool isKnown = all.unmade.empty();
    Part(all, "statistics", [&] {
        if (!isKnown) {
            throw Failure{"they were not sampled", "what they are sampled by did not answer before", ""};
        }
        all.samples = SampleCaches(options.seconds, options.patience, [&](double share) {
            tell("statistics", kBefore + share * (kAfter - kBefore));
        });
    });
    tell("log", kAfter);
    Part(all, "log", [&] { AddLog(all); });
    return all;
}

}  // namespace cli
