// Reading a trace into miss-ratio curves, against the cheapest programs that read all of it.

#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <memory>
#include <random>

#include <fmt/format.h>

#include "appliance.h"
#include "benches.h"
#include "comparison.h"
#include "sizing/survey.h"
#include "tests/sizing/workload.h"

namespace bench {
namespace {

constexpr int kMillion = 1'000'000;
constexpr int kLongTrace = 10 * kMillion;
constexpr double kMostMemory = 32 << 20;

std::string TracePath(int requests) {
    return fmt::format("/tmp/{}.csv", requests);
}

char* Put(char* at, std::uint64_t number, char behind) {
    at = std::to_chars(at, at + 20, number).ptr;
    *at = behind;
    return at + 1;
}

// Twenty volumes; places of 16 KiB all over them, a few of them hot; 4 to 32 KiB a request.
void WriteTrace(const std::string& path, int requests) {
    constexpr std::size_t kPlaces = 1 << 20;
    const sizing::Zipf zipf(kPlaces, 0.9);
    std::mt19937_64 random(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same trace in every run
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "w"), std::fclose);
    Require(file != nullptr, "cannot write " + path);
    std::uint64_t time = 1'577'808'000'000'000;
    for (int i = 0; i < requests; ++i) {
        const std::uint64_t place = zipf(random) * 2'654'435'761U % kPlaces;
        const std::uint64_t dice = random();
        char line[128];
        char* end = Put(line, place % 20, ',');
        *end++ = dice % 10 < 3 ? 'R' : 'W';
        *end++ = ',';
        end = Put(end, place * 16384, ',');
        end = Put(end, (1 + (dice >> 8U) % 8) * 4096, ',');
        end = Put(end, time += (dice >> 16U) % 2000, '\n');
        std::fwrite(line, 1, static_cast<std::size_t>(end - line), file.get());
    }
    Require(std::fflush(file.get()) == 0, "cannot write " + path);
}

// The file is in memory afterwards, for whoever reads it.
const std::string& HaveTrace(int requests) {
    static std::string traces[2];
    std::string& path = traces[requests == kLongTrace ? 1 : 0];
    if (path.empty()) {
        path = TracePath(requests);
        WriteTrace(path, requests);
    }
    return path;
}

void SurveyLongTrace(std::size_t samples) {
    const sizing::Survey survey =
        sizing::SurveyTrace({HaveTrace(kLongTrace)}, {.read = {}, .samples = samples});
    Require(survey.report.records == kLongTrace && survey.report.bad == 0,
            "the trace was not read as a whole");
}

void SurveySampled() {
    SurveyLongTrace(sizing::SampledCurve::kSamples);
}

void SurveyExactly() {
    SurveyLongTrace(0);
}

void CountLines() {
    RunProgram("/bin/sh", {"-c", "exec wc -l \"$0\" >/dev/null", HaveTrace(kLongTrace).c_str()});
}

void SumColumn() {
    RunProgram("/bin/sh", {"-c", "exec awk -F, '{ sum += $4 } END { print sum }' \"$0\" >/dev/null",
                           HaveTrace(kLongTrace).c_str()});
}

Run OnTrace(void (*work)()) {
    return [work] {
        HaveTrace(kLongTrace);
        return CostOf(work);
    };
}

Run PeakOfSurvey(int requests) {
    return [requests] {
        const std::string command =
            fmt::format("setarch -R /proc/{}/exe --peak-of-survey {}", getpid(), HaveTrace(requests));
        const std::unique_ptr<FILE, int (*)(FILE*)> output(popen(command.c_str(), "r"), pclose);
        Cost cost;
        Require(output && std::fscanf(output.get(), "%lf", &cost.peakMemory) == 1, "the survey failed");
        return cost;
    };
}

}  // namespace

int PrintPeakOfSurvey(const char* tracePath) {
    try {
        sizing::SurveyTrace({tracePath}, {});
    } catch (...) {  // whoever started this tells that it failed
        return 1;
    }
    std::printf("%.0f\n", OwnPeakMemory());
    return 0;
}

void RegisterSizing() {
    const Comparison comparisons[] = {
        {"sizing/sampled", OnTrace(SurveySampled), "wc -l", OnTrace(CountLines), 7, {{kCpu, 6}, {kWall, 0}}},
        {"sizing/sampled/awk",
         OnTrace(SurveySampled),
         "awk that sums a column",
         OnTrace(SumColumn),
         5,
         {{kCpu, 0.5}, {kWall, 0}}},
        {"sizing/exact",
         OnTrace(SurveyExactly),
         "awk that sums a column",
         OnTrace(SumColumn),
         3,
         {{kCpu, 8}, {kWall, 0}}},
        {"sizing/memory/growth",
         PeakOfSurvey(kLongTrace),
         "the same with a million requests",
         PeakOfSurvey(kMillion),
         1,
         {{kMemory, 1.0}}},
        {"sizing/memory",
         PeakOfSurvey(kLongTrace),
         "32 MiB",
         [] { return Cost{.peakMemory = kMostMemory}; },
         1,
         {{kMemory, 1.0}}}};
    for (const Comparison& comparison : comparisons) {
        Register(comparison);
    }
}

}  // namespace bench
