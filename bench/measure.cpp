#include "measure.h"

#include <sys/resource.h>

#include <algorithm>
#include <ctime>
#include <fstream>

namespace bench {
namespace {

double Seconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double Seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

// The readings of all clocks.
Cost Now() {
    rusage children{};
    getrusage(RUSAGE_CHILDREN, &children);
    return {Seconds(CLOCK_MONOTONIC),
            Seconds(CLOCK_PROCESS_CPUTIME_ID) + Seconds(children.ru_utime) + Seconds(children.ru_stime), 0};
}

}  // namespace

Meter::Meter() : start_(Now()) {}

Cost Meter::Read() const {
    const Cost now = Now();
    return {now.wall - start_.wall, now.cpu - start_.cpu, 0};
}

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

double OwnPeakMemory() {
    // Not getrusage: what that tells begins with the memory of the process that started the program.
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (double kib = 0; word == "VmHWM:" && status >> kib) {
            return kib * 1024;
        }
    }
    return 0;
}

}  // namespace bench
