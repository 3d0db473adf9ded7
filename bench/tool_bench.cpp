// vemocachectl's looks at all caches, against starting the programs and reading the files that they need.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "appliance.h"
#include "base/unique_fd.h"
#include "benches.h"
#include "comparison.h"

namespace bench {
namespace {

constexpr int kFewCaches = 8;
constexpr const char* kTableProgram = "/sbin/dmsetup";
constexpr const char* kConfig = "/usr/vemo/etc/flashcache.conf";

// What a verb needs beside its own start, as strace tells it.
struct Needs {
    int tableStarts = 0;  // of dmsetup, for each cache
    int tableStart = 0;   // and for all together
    int knobReads = 0;    // of all ten knobs, for each cache
    std::vector<const char*> countFiles;
    std::vector<const char*> files;
    bool readsSsd = false;
};

Needs OfList() {
    return {1, 0, 1, {"stats", "progress", "attribute"}, {kConfig, kConfig}, false};
}

Needs OfDoctor() {
    return {0,
            1,
            1,
            {"stats", "progress", "errors", "attribute"},
            {kConfig, kConfig, kConfig, "/tmp/flashcache.conf", "/proc/locks", "/proc/locks", "/proc/locks",
             "/proc/locks", "/proc/mounts", "/proc/meminfo"},
            true};
}

constexpr std::array kKnobs = {"cache_all",         "do_sync",           "stop_sync",   "max_clean_ios_total",
                               "max_clean_ios_set", "fallow_delay",      "fast_remove", "dirty_thresh_pct",
                               "reclaim_policy",    "skip_seq_thresh_kb"};

// Its output goes nowhere. Nothing is wrong with the caches here, so that every verb ends with 0.
void Start(const std::string& program, const std::vector<std::string>& words) {
    std::vector<const char*> arguments = {program.c_str()};
    for (const auto& word : words) {
        arguments.push_back(word.c_str());
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = -1;
    const int error = posix_spawn(&child, program.c_str(), &actions, nullptr,
                                  const_cast<char* const*>(arguments.data()), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = -1;
    Require(error == 0 && waitpid(child, &status, 0) == child && status == 0,
            fmt::format("{} {} failed", program, fmt::join(words, " ")));
}

void RunTool(const std::vector<std::string>& words) {
    static const std::string tool =
        std::filesystem::read_symlink("/proc/self/exe").parent_path() / "vemocachectl";
    Start(tool, words);
}

void Read(const std::string& path) {
    const base::UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, 8192> buffer{};
    Require(static_cast<bool>(file), path);
    while (read(file.Get(), buffer.data(), buffer.size()) > 0 && !path.starts_with("/dev/")) {
    }
}

void ReadFilesOf(int cache, const Needs& needs) {
    const std::string pair = fmt::format("md{}+volume_{}", 3 + cache, 1 + cache);
    for (int round = 0; round < needs.knobReads; ++round) {
        for (const char* knob : kKnobs) {
            Read(fmt::format("/proc/sys/dev/flashcache_{}/{}", pair, knob));
        }
    }
    for (const char* file : needs.countFiles) {
        Read(fmt::format("/proc/flashcache/{}/flashcache_{}", pair, file));
    }
    if (needs.readsSsd) {
        Read(SsdPath(cache));
    }
}

void DoBareWork(const Needs& needs) {
    RunTool({"--version"});
    for (int start = 0; start < needs.tableStart; ++start) {
        Start(kTableProgram, {"table"});
    }
    for (int cache = 0; cache < kFewCaches; ++cache) {
        for (int start = 0; start < needs.tableStarts; ++start) {
            Start(kTableProgram, {"table", CacheDevPath(cache)});
        }
        ReadFilesOf(cache, needs);
    }
    for (const char* file : needs.files) {
        Read(file);
    }
}

// All of them configured, so that nothing is wrong with any.
void HaveConfigured(int count) {
    static int configured = 0;
    HaveCaches(count);
    for (; configured < count; ++configured) {
        RunTool({"config", "adopt", CacheDevPath(configured)});
    }
}

Run Tool(const char* verb) {
    return [verb] {
        HaveConfigured(kFewCaches);
        return CostOf([verb] { RunTool({verb}); });
    };
}

Run Bare(const Needs& needs) {
    return [needs] {
        HaveConfigured(kFewCaches);
        return CostOf([&] { DoBareWork(needs); });
    };
}

Cost MetricsPerCache(int count) {
    HaveConfigured(count);
    Cost cost = CostOf([] { RunTool({"metrics"}); });
    cost.wall /= count;
    cost.cpu /= count;
    return cost;
}

// Measured once, before there are more: caches come to be here and never go.
const Cost& MetricsPerCacheOfFew() {
    static const Cost cost = [] {
        constexpr int kRounds = 21;
        std::vector<double> walls;
        std::vector<double> cpus;
        for (int round = 0; round < kRounds; ++round) {
            const Cost one = MetricsPerCache(kFewCaches);
            walls.push_back(one.wall);
            cpus.push_back(one.cpu);
        }
        return Cost{Median(walls), Median(cpus)};
    }();
    return cost;
}

}  // namespace

void RegisterTool() {
    const Comparison comparisons[] = {{"tool/list/8",
                                       Tool("list"),
                                       "its start, dmsetup for each, reads",
                                       Bare(OfList()),
                                       40,
                                       {{kWall, 1.15}, {kCpu, 0}}},
                                      {"tool/doctor/8",
                                       Tool("doctor"),
                                       "its start, dmsetup once, reads",
                                       Bare(OfDoctor()),
                                       40,
                                       {{kWall, 1.15}, {kCpu, 0}}},
                                      {"tool/metrics/8",
                                       Tool("metrics"),
                                       "its start, dmsetup once, reads",
                                       Bare(OfDoctor()),
                                       40,
                                       {{kWall, 1.15}, {kCpu, 0}}},
                                      {"tool/metrics/64",
                                       [] {
                                           MetricsPerCacheOfFew();
                                           return MetricsPerCache(kMostCaches);
                                       },
                                       "the same with 8, for each cache",
                                       [] { return MetricsPerCacheOfFew(); },
                                       21,
                                       {{kWall, 1.10}, {kCpu, 1.10}}}};
    for (const Comparison& comparison : comparisons) {
        Register(comparison);
    }
}

}  // namespace bench
