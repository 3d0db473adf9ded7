#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fstream>

#include "doctor/gather_parts.h"
#include "support/kept_file.h"

namespace cli {
namespace {

// A count that was last seen longer ago than this may be that of another flush.
constexpr std::int64_t kLongestGap = 600;

struct Sample {
    std::uint64_t dirty = 0;
    std::int64_t since = 0;  // seconds since the boot
    std::int64_t seen = 0;
};

std::string SamplePathOf(const CacheFacts& cache) {
    return fmt::format("/run/vemocachectl/{}.flush", KernelName(cache.ssd, cache.volume));
}

std::int64_t SecondsSinceBoot() {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return now.tv_sec;
}

std::optional<Sample> ReadSample(const std::string& path) {
    Sample sample;
    std::ifstream file(path);
    return file >> sample.dirty >> sample.since >> sample.seen ? std::optional(sample) : std::nullopt;
}

}  // namespace

FlushFacts GatherFlush(const CacheFacts& cache, bool runs) {
    FlushFacts facts{runs, {}};
    const auto dirty = cache.kernel ? cache.kernel->dirtyBlocks : std::nullopt;
    if (!runs || !dirty || !cache.IsFlushRecorded()) {
        return facts;
    }
    const std::string path = SamplePathOf(cache);
    const std::int64_t now = SecondsSinceBoot();
    const auto last = ReadSample(path);
    const bool stood = last && last->dirty == *dirty && last->since <= now && now - last->seen <= kLongestGap;
    const std::int64_t since = stood ? last->since : now;
    // Without room for it the next look begins anew.
    static_cast<void>(WriteKeptFile(path, fmt::format("{} {} {}\n", *dirty, since, now)));
    facts.secondsWithoutProgress = static_cast<std::uint64_t>(now - since);
    return facts;
}

}  // namespace cli
