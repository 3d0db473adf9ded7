// A trace as one stream of requests.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "sizing/formats/formats.h"

namespace sizing {

// Reads files of any of the formats, each compressed or not, once and in constant memory. Several are merged
// by time, such as those of the CPUs of a block trace or those of the volumes of a machine: each is taken to
// be in order; at equal times, and where a format has none, they follow each other as they were named.
class Trace {
  public:
    static constexpr std::size_t kMostFiles = 512;

    // kStandardInput is a file as well. Throws Failure when one cannot be opened or recognised, or all are
    // empty.
    Trace(const std::vector<std::string>& files, const ReadOptions& options);

    // The next requests, in the order of time as far as the files are; none at the end. Valid until the next
    // call.
    std::span<const Request> NextBatch();

    [[nodiscard]] const ReadReport& Report() const noexcept { return context_->report; }
    [[nodiscard]] const VolumeNames& Volumes() const noexcept { return context_->volumes; }

  private:
    struct Stream {
        std::unique_ptr<Reader> reader;
        std::vector<Request> batch;
        std::size_t at = 0;
        std::size_t count = 0;
        std::uint64_t lastTime = 0;
    };

    bool Refill(Stream& stream);
    [[nodiscard]] std::uint64_t HeadTime(std::size_t stream) const noexcept;
    bool IsLater(std::size_t one, std::size_t other) const noexcept;

    std::unique_ptr<ReadContext> context_;  // where the readers find it
    std::vector<Stream> streams_;
    std::vector<std::size_t> order_;  // a heap of those that have a request, the oldest one at its top
    std::vector<Request> merged_;
};

}  // namespace sizing
