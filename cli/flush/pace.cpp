#include "flush/pace.h"

#include <fmt/format.h>

#include <cmath>
#include <fstream>

#include "caches/running.h"
#include "output/answer.h"
#include "support/kept_file.h"

namespace cli {
namespace {

std::string PathOf(const Cache& cache) {
    return fmt::format("/usr/vemo/etc/vemocachectl/{}.pace", KernelName(cache.Ssd(), cache.Volume()));
}

}  // namespace

std::optional<double> KeptPace(const Cache& cache) {
    double blocksPerSecond = 0;
    std::ifstream file(PathOf(cache));
    const bool isKnown = static_cast<bool>(file >> blocksPerSecond) && std::isfinite(blocksPerSecond);
    return isKnown && blocksPerSecond > 0 ? std::optional(blocksPerSecond) : std::nullopt;
}

std::optional<std::uint64_t> ExpectedSeconds(const Cache& cache, std::optional<std::uint64_t> dirtyBlocks) {
    const auto pace = KeptPace(cache);
    if (dirtyBlocks == 0U || !dirtyBlocks || !pace) {
        return dirtyBlocks == 0U ? dirtyBlocks : std::nullopt;
    }
    const double seconds = std::ceil(static_cast<double>(*dirtyBlocks) / *pace);
    return seconds < 1e15 ? std::optional(static_cast<std::uint64_t>(seconds)) : std::nullopt;
}

void PaceMeter::See(const Progress& progress) {
    if (!progress.dirtyBlocks) {
        return;
    }
    const Reading now{Clock::now(), *progress.dirtyBlocks};
    if (!first_) {
        first_ = now;
    }
    if (!least_ || now.dirtyBlocks < least_->dirtyBlocks) {
        least_ = now;
    }
}

void PaceMeter::Keep(const Cache& cache) const {
    constexpr std::chrono::duration<double> kShortest(0.5);
    if (!first_ || !least_) {
        return;
    }
    const std::chrono::duration<double> span = least_->time - first_->time;
    const auto blocks = static_cast<double>(first_->dirtyBlocks - least_->dirtyBlocks);
    // Without it the next flush tells no time ahead: no reason to make a good flush a failed one.
    if (span >= kShortest && !WriteKeptFile(PathOf(cache), fmt::format("{:.6g}\n", blocks / span.count()))) {
        Note("how fast the flush went could not be kept for the next one");
    }
}

}  // namespace cli
