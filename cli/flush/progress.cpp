#include "flush/progress.h"

#include <fmt/format.h>

#include <cmath>

#include "caches/kernel_state.h"

namespace cli {
namespace {

using std::chrono::seconds;

constexpr seconds kRateWindow{10};
constexpr seconds kStallTime{15};

template <typename Number>
Value Known(const std::optional<Number>& number) {
    return number ? Value(*number) : Value();
}

}  // namespace

ProgressMeter::ProgressMeter(const Cache& cache)
    : ssd_(cache.Ssd()), volume_(cache.Volume()), blockSize_(cache.BlockSize()) {}

Progress ProgressMeter::Read() {
    Progress progress;
    progress.blockSize = blockSize_;
    progress.percent = FlushPercent(ssd_, volume_);
    progress.dirtyBlocks = DirtyBlocks(ssd_, volume_);
    progress.writeErrors = WriteErrors(ssd_, volume_);
    progress.ssdFailed = SsdReadErrors(ssd_, volume_).value_or(0) > 0;
    if (progress.dirtyBlocks) {
        Rate(progress, *progress.dirtyBlocks);
    }
    return progress;
}

void ProgressMeter::Rate(Progress& progress, std::uint64_t dirty) {
    const auto now = Clock::now();
    if (samples_.empty() || dirty < samples_.back().dirtyBlocks) {
        lastAdvance_ = now;
    }
    samples_.push_back({now, dirty});
    while (samples_.size() > 2 && now - samples_.front().time > kRateWindow) {
        samples_.pop_front();
    }
    progress.idle = std::chrono::duration_cast<seconds>(dirty > 0 ? now - lastAdvance_ : Clock::duration(0));
    progress.stalled = progress.idle > kStallTime;
    const std::chrono::duration<double> span = now - samples_.front().time;
    const std::uint64_t before = samples_.front().dirtyBlocks;
    if (span.count() > 0 && before >= dirty) {
        progress.blocksPerSecond = static_cast<double>(before - dirty) / span.count();
    }
}

std::optional<std::string> WhyWriteBacksFailed(const Progress& progress) {
    const auto failed = progress.writeErrors.value_or(0);
    if (failed == 0) {
        return std::nullopt;
    }
    return progress.ssdFailed ? fmt::format("{} write-backs failed, and the SSD has read errors", failed)
                              : fmt::format("the volume refused {} writes", failed);
}

std::optional<std::uint64_t> SecondsLeft(const Progress& progress) {
    if (!progress.dirtyBlocks || !progress.blocksPerSecond || *progress.blocksPerSecond <= 0) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(
        std::ceil(static_cast<double>(*progress.dirtyBlocks) / *progress.blocksPerSecond));
}

std::vector<Field> FieldsOf(const Progress& progress) {
    const auto rate = progress.blocksPerSecond
                          ? std::optional(static_cast<std::uint64_t>(*progress.blocksPerSecond))
                          : std::nullopt;
    return {{"percent", "Flushed", Known(progress.percent), Format::kPercent, false, true},
            {"dirty_blocks", "Dirty blocks", Known(progress.dirtyBlocks)},
            {"dirty_bytes", "Dirty", BytesOf(progress.dirtyBlocks, progress.blockSize), Format::kBytes},
            {"bytes_per_second", "Bytes per second", BytesOf(rate, progress.blockSize), Format::kBytes, false,
             true},
            {"seconds_left", "Time left", Known(SecondsLeft(progress)), Format::kSeconds, false, true},
            {"write_errors", "Failed write-backs", Known(progress.writeErrors)},
            {"stalled", "Stalled", progress.stalled}};
}

}  // namespace cli
