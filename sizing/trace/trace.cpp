#include "sizing/trace/trace.h"

#include <algorithm>

#include "sizing/failure.h"

namespace sizing {
namespace {

constexpr std::size_t kBatch = 256;

}  // namespace

Trace::Trace(const std::vector<std::string>& files, const ReadOptions& options)
    : context_(std::make_unique<ReadContext>()) {
    context_->options = options;
    if (files.size() > kMostFiles) {
        throw Failure("cannot read " + std::to_string(files.size()) + " files at once",
                      "the most are " + std::to_string(kMostFiles), "");
    }
    for (const std::string& file : files) {
        if (auto reader = MakeReader(ByteBuffer(OpenBytes(file)), file, *context_)) {
            streams_.push_back({std::move(reader), std::vector<Request>(kBatch), 0, 0, 0});
        }
    }
    if (streams_.empty()) {
        throw Failure("there is no trace to read", files.empty() ? "no file is named" : "all files are empty",
                      "");
    }
    if (streams_.size() > 1) {
        merged_.resize(kBatch);
        for (std::size_t stream = 0; stream < streams_.size(); ++stream) {
            if (Refill(streams_[stream])) {
                order_.push_back(stream);
            }
        }
        std::ranges::make_heap(order_, [&](auto one, auto other) { return IsLater(one, other); });
    }
}

bool Trace::Refill(Stream& stream) {
    stream.at = 0;
    stream.count = stream.reader->Read(stream.batch);
    for (std::size_t i = 0; i < stream.count; ++i) {
        const std::uint64_t time = stream.batch[i].time;
        context_->report.timesBackwards += time < stream.lastTime ? 1 : 0;
        stream.lastTime = time;
    }
    return stream.count > 0;
}

std::uint64_t Trace::HeadTime(std::size_t stream) const noexcept {
    return streams_[stream].batch[streams_[stream].at].time;
}

bool Trace::IsLater(std::size_t one, std::size_t other) const noexcept {
    const std::uint64_t oneTime = HeadTime(one);
    const std::uint64_t otherTime = HeadTime(other);
    return oneTime > otherTime || (oneTime == otherTime && one > other);
}

std::span<const Request> Trace::NextBatch() {
    if (streams_.size() == 1) {
        Stream& only = streams_.front();
        Refill(only);
        return std::span(only.batch).first(only.count);
    }
    const auto isLater = [&](auto one, auto other) { return IsLater(one, other); };
    std::size_t count = 0;
    while (count < merged_.size() && !order_.empty()) {
        std::ranges::pop_heap(order_, isLater);
        Stream& oldest = streams_[order_.back()];
        merged_[count++] = oldest.batch[oldest.at++];
        if (oldest.at < oldest.count || Refill(oldest)) {
            std::ranges::push_heap(order_, isLater);
        } else {
            order_.pop_back();
        }
    }
    return std::span(merged_).first(count);
}

}  // namespace sizing
