#include "report/sample.h"

#include <poll.h>

#include <algorithm>
#include <chrono>

#include "stats/rounds.h"

namespace cli {
namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr double kMostIntervals = 60;
constexpr double kShortestInterval = 0.25;

}  // namespace

std::vector<ReportSample> SampleCaches(double seconds, double patience,
                                       const std::function<void(double share)>& tell) {
    const double interval = std::max(kShortestInterval, seconds / kMostIntervals);
    std::vector<ReportSample> samples;
    RoundsInBackground rounds(Watch({}), Seconds(interval));
    const auto start = Clock::now();
    for (;;) {
        pollfd news{rounds.Descriptor(), POLLIN, 0};
        if (poll(&news, 1, static_cast<int>((interval + patience) * 1000)) <= 0) {
            return samples;
        }
        const double since = Seconds(Clock::now() - start).count();
        samples.push_back({samples.empty() ? 0 : since, rounds.Take()});
        tell(std::min(since / std::max(seconds, kShortestInterval), 1.0));
        if (since + interval / 2 > seconds) {
            return samples;
        }
    }
}

}  // namespace cli
