#include <algorithm>

#include "sizing/advice/advice.h"

namespace sizing {
namespace {

double Share(std::uint64_t part, std::uint64_t whole) {
    return whole == 0 ? 0 : std::min(static_cast<double>(part) / static_cast<double>(whole), 1.0);
}

}  // namespace

std::uint64_t CacheOutlook::References() const {
    return simulated.counters[Counter::kReads] + simulated.counters[Counter::kWrites];
}

double CacheOutlook::ReadHits() const {
    return Share(simulated.counters[Counter::kReadHits], simulated.counters[Counter::kReads]);
}

double CacheOutlook::WriteHits() const {
    return Share(simulated.counters[Counter::kWriteHits], simulated.counters[Counter::kWrites]);
}

// What is dirty at the end is still to be written.
double CacheOutlook::Spared() const {
    const double asked = static_cast<double>(simulated.counters[Counter::kDiskReads]) +
                         static_cast<double>(simulated.counters[Counter::kDiskWrites]) +
                         simulated.dirtyBlocks;
    const auto references = static_cast<double>(References());
    return references == 0 ? 0 : std::max(1 - asked / references, 0.0);
}

double CacheOutlook::Absorbed() const {
    const auto writes = static_cast<double>(simulated.counters[Counter::kWrites]);
    const double written =
        static_cast<double>(simulated.counters[Counter::kDiskWrites]) + simulated.dirtyBlocks;
    return mode != WriteMode::kBack || writes == 0 ? 0 : std::clamp(1 - written / writes, 0.0, 1.0);
}

// A block that enters is written whole, one that is there by what a write has of it.
double CacheOutlook::SsdBytes(double bytesOfWrite, std::uint64_t blockBytes) const {
    const std::uint64_t all = simulated.counters[Counter::kSsdWrites];
    const std::uint64_t hits = std::min(simulated.counters[Counter::kWriteHits], all);
    return static_cast<double>(all - hits) * static_cast<double>(blockBytes) +
           static_cast<double>(hits) * bytesOfWrite;
}

double Advice::BytesOfWrite() const {
    const double references = curve.Referred().writes;
    const double bytes = static_cast<double>(totals.Of(Kind::kWrite).bytes);
    return references == 0 ? 0 : std::min(bytes / references, static_cast<double>(curve.Blocks().Bytes()));
}

double Advice::Days() const {
    constexpr double kDay = 86400e9;
    return totals.lastTime <= totals.firstTime
               ? 0
               : static_cast<double>(totals.lastTime - totals.firstTime) / kDay;
}

}  // namespace sizing
