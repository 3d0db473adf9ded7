#include "table.h"

#include <fmt/format.h>

#include <exception>
#include <string>

#include "comparison.h"
#include "machine.h"

namespace bench {
namespace {

constexpr const char* kLayout = "{:<27} {:<34} {:<7} {:>9} {:>9} {:>6} {:>6}  {}\n";

// "1.23 ms", "4.1 MB" or "0.0123".
std::string Quantity(double value, Unit unit) {
    if (unit == Unit::kBytes) {
        return fmt::format("{:.2f} MB", value / 1e6);
    }
    if (unit == Unit::kNone) {
        return fmt::format("{:.4f}", value);
    }
    if (value < 1e-3) {
        return fmt::format("{:.1f} us", value * 1e6);
    }
    return value < 1 ? fmt::format("{:.2f} ms", value * 1e3) : fmt::format("{:.2f} s", value);
}

void PrintLine(const benchmark::BenchmarkReporter::Run& run, const Measure& measure) {
    const auto counter = [&](const char* name) {
        return run.counters.at(std::string(measure.name) + name).value;
    };
    const double ratio = counter(".ratio");
    const double goal = counter(".goal");
    const std::string name = run.run_name.function_name;
    fmt::print(kLayout, name, run.report_label, measure.name, Quantity(counter(".ours"), measure.unit),
               Quantity(counter(".baseline"), measure.unit), fmt::format("{:.2f}", ratio),
               goal == 0 ? "-" : fmt::format("{:.2f}", goal),
               goal == 0       ? "-"
               : ratio <= goal ? "yes"
                               : "NO");
}

}  // namespace

bool Table::ReportContext(const Context& /*context*/) {
    try {
        const MachineCosts costs = MeasureMachine();
        fmt::print("This machine: page fault {}, file status {}, process start {}, fsync {}\n\n",
                   Quantity(costs.pageFault, Unit::kSeconds), Quantity(costs.fileStatus, Unit::kSeconds),
                   Quantity(costs.processStart, Unit::kSeconds), Quantity(costs.fsync, Unit::kSeconds));
    } catch (const std::exception& error) {
        fmt::print("This machine: unknown, {}\n\n", error.what());
    }
    fmt::print(kLayout, "what", "against", "measure", "ours", "theirs", "ratio", "goal", "met");
    return true;
}

void Table::ReportRuns(const std::vector<Run>& runs) {
    for (const Run& run : runs) {
        if (run.error_occurred) {
            hasErrors_ = true;
            fmt::print("{:<27} FAILED: {}\n", run.run_name.function_name, run.error_message);
            continue;
        }
        for (const Measure& measure : kMeasures) {
            if (run.counters.find(std::string(measure.name) + ".ratio") != run.counters.end()) {
                PrintLine(run, measure);
            }
        }
    }
    std::fflush(stdout);
}

}  // namespace bench
