// sweep: the library's operations under one harm at a time. Runs on a simulated appliance.
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string_view>

#include "support/on_appliance.h"
#include "sweep/sweep.h"

namespace {

constexpr const char* kUsage =
    "usage: sweep faults|kills|tool [--operation NAME] [--kind KIND] [--n NUMBER] [--every STEP]\n";

std::optional<sweep::Options> Parse(int argc, char** argv) {
    sweep::Options options;
    for (int i = 2; i + 1 < argc; i += 2) {
        const std::string_view name = argv[i];
        const std::string value = argv[i + 1];
        if (name == "--operation") {
            options.operation = value;
        } else if (name == "--kind") {
            options.kind = value;
        } else if (name == "--n") {
            options.number = std::atoi(value.c_str());
        } else if (name == "--every") {
            options.every = std::max(std::atoi(value.c_str()), 1);
        } else {
            return std::nullopt;
        }
    }
    return argc % 2 == 0 ? std::optional(options) : std::nullopt;
}

decltype(&sweep::SweepFaults) SweepCalled(std::string_view name) {
    return name == "faults"  ? sweep::SweepFaults
           : name == "kills" ? sweep::SweepKills
           : name == "tool"  ? sweep::SweepToolKills
                             : nullptr;
}

int Run(decltype(&sweep::SweepFaults) sweepAll, const sweep::Options& options) {
    sweep::PrepareAppliance();
    const sweep::Files files;
    const sweep::Tally tally = sweepAll(options, files);
    int all = 0;
    for (const auto& [name, points] : tally.points) {
        std::cout << name << ": " << points << " points\n";
        all += points;
    }
    std::cout << all << " points tried, " << tally.findings << " findings\n";
    return tally.findings == 0 && all > 0 ? 0 : 1;
}

// The tool that is tried is the one that was built with this program.
void FindOwnTool() {
    const std::string folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const char* const path = std::getenv("PATH");
    setenv("PATH", (folder + ":" + (path == nullptr ? "/usr/sbin:/usr/bin" : path)).c_str(), 1);
}

// The C library's own stores of freed memory count as used: without them its numbers are exact.
void RequireExactMemory(char** argv) {
    constexpr const char* kTunables = "glibc.malloc.tcache_count=0:glibc.malloc.mxfast=0";
    const char* const set = std::getenv("GLIBC_TUNABLES");
    if (set == nullptr || std::string_view(set) != kTunables) {
        setenv("GLIBC_TUNABLES", kTunables, 1);
        execv("/proc/self/exe", argv);
    }
}

}  // namespace

int main(int argc, char** argv) {
    RequireExactMemory(argv);
    const auto sweepAll = argc > 1 ? SweepCalled(argv[1]) : nullptr;
    const auto options = Parse(argc, argv);
    if (sweepAll == nullptr || !options) {
        std::cerr << kUsage;
        return 2;
    }
    if (!IsOnAppliance()) {
        std::cerr << "the sweeps run on a simulated appliance alone: ./dev sweep " << argv[1] << '\n';
        return 2;
    }
    FindOwnTool();
    return Run(sweepAll, *options);
}
