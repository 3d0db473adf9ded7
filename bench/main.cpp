// vemo-bench: see --help.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "appliance.h"
#include "benches.h"
#include "table.h"

namespace {

constexpr const char* kHelp =
    "usage: vemo-bench [GROUP...] [--benchmark_OPTION...]\n"
    "\n"
    "Boots a simulated appliance and measures the library on it, each piece of work in turn with another way "
    "to\n"
    "do the same. Prints the medians, and the median of the ratios of the runs that followed each other; "
    "above\n"
    "them what a few things cost on this machine, which the ratios may hang on.\n"
    "\n"
    "  tool    what vemocachectl costs with 8 and 64 caches\n"
    "  status  the status of 1, 8 and 64 caches\n"
    "  config  reading the configuration of 1 to 10,000 caches\n"
    "  ssd     the SSD compatibility database\n"
    "  walk    file statistics over 200,000 files\n"
    "  device  reads and writes of the simulated cache device: blocks of 64 KiB, and of 4 KiB\n"
    "  sizing  reading a trace of 10 million requests into a miss-ratio curve, and how near a sampled one "
    "is\n"
    "  knobs   a knob write from a process of 4 GB (needs as much free memory)\n"
    "\n"
    "All groups by default. Of Google Benchmark's options, --benchmark_filter=REGEX and\n"
    "--benchmark_out=FILE are of use. Exit code: 0 measured, 1 something could not be, 2 wrong usage.\n";

// Turns the names of groups into a filter, in front of the other arguments.
std::vector<std::string> WithFilter(int argc, char** argv) {
    std::vector<std::string> arguments = {argv[0], ""};
    std::string groups;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument.starts_with("-")) {
            arguments.push_back(argument);
        } else {
            groups += (groups.empty() ? "" : "|") + argument;
        }
    }
    arguments[1] = "--benchmark_filter=" + (groups.empty() ? "." : "^(" + groups + ")/");
    return arguments;
}

int RunBenchmarks(int argc, char** argv) {
    std::vector<std::string> arguments = WithFilter(argc, argv);
    std::vector<char*> pointers(arguments.size());
    std::transform(arguments.begin(), arguments.end(), pointers.begin(),
                   [](std::string& argument) { return argument.data(); });
    auto count = static_cast<int>(pointers.size());
    benchmark::Initialize(&count, pointers.data());
    if (benchmark::ReportUnrecognizedArguments(count, pointers.data())) {
        return 2;
    }
    bench::RegisterTool();
    bench::RegisterStatus();
    bench::RegisterConfig();
    bench::RegisterSsdSupport();
    bench::RegisterWalk();
    bench::RegisterDevice();
    bench::RegisterSizing();
    bench::RegisterSizingAccuracy();
    bench::RegisterKnobs();  // last: its large process stays
    bench::Table table;
    const bool any = benchmark::RunSpecifiedBenchmarks(&table) > 0;
    if (!any) {
        std::fputs(kHelp, stderr);
        return 2;
    }
    return table.HasErrors() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string first = argc > 1 ? argv[1] : "";
    if (first == "--help" || first == "-h") {
        std::fputs(kHelp, stdout);
        return 0;
    }
    if (!bench::IsOnAppliance()) {
        bench::RunOnAppliance(argv);
        return 1;
    }
    if (first == "--peak-of-walk" && argc == 3) {
        return bench::PrintPeakOfWalk(argv[2]);
    }
    if (first == "--peak-of-survey" && argc == 3) {
        return bench::PrintPeakOfSurvey(argv[2]);
    }
    return RunBenchmarks(argc, argv);
}
