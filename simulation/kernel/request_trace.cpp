#include "simulation/kernel/request_trace.h"

#include <fmt/format.h>

#include "base/write_all.h"

namespace simulation {

namespace {

class TracedTarget : public BlockTarget {
  public:
    TracedTarget(RequestTrace& trace, BlockTarget& target, unsigned device)
        : trace_(trace), target_(target), device_(device) {}

    uint64_t Size() const override { return target_.Size(); }
    void Read(uint64_t offset, std::span<char> into) override {
        trace_.Note(device_, "R", offset, into.size());
        target_.Read(offset, into);
    }
    void Write(uint64_t offset, std::span<const char> from) override {
        trace_.Note(device_, "W", offset, from.size());
        target_.Write(offset, from);
    }
    void Discard(uint64_t offset, uint64_t length) override {
        trace_.Note(device_, "D", offset, length);
        target_.Discard(offset, length);
    }
    void Sync() override {
        trace_.Note(device_, "F", 0, 0);
        target_.Sync();
    }

  private:
    RequestTrace& trace_;
    BlockTarget& target_;
    unsigned device_;
};

// The number at the end of a name such as "cachedev_0".
unsigned NumberIn(const std::string& name) {
    const size_t start = name.find_last_not_of("0123456789") + 1;
    return start < name.size() && name.size() - start < 6
               ? static_cast<unsigned>(std::stoul(name.substr(start)))
               : 0;
}

}  // namespace

RequestTrace::RequestTrace(base::UniqueFd file, const CleanPace& pace)
    : file_(std::move(file)), pace_(pace), start_(pace.Now()) {}

std::unique_ptr<BlockTarget> RequestTrace::Around(BlockTarget& target, const std::string& name) {
    return std::make_unique<TracedTarget>(*this, target, NumberIn(name));
}

// Device-mapper devices have the major number 253 where nothing else is said.
void RequestTrace::Note(unsigned device, const char* what, uint64_t offset, uint64_t length) {
    if (!file_) {
        return;
    }
    constexpr uint64_t kSector = 512;
    const auto time = std::chrono::duration_cast<std::chrono::nanoseconds>(pace_.Now() - start_).count();
    const uint64_t first = offset / kSector;
    const uint64_t sectors = (offset + length + kSector - 1) / kSector - first;
    std::string line = fmt::format("253,{:<3} 0 {:8} {:5}.{:09} {:5}  Q {:>3} ", device, ++sequence_,
                                   time / 1'000'000'000, time % 1'000'000'000, 0, what);
    line += sectors == 0 ? "[vemo-kernel]\n" : fmt::format("{} + {} [vemo-kernel]\n", first, sectors);
    if (!base::WriteAll(file_.Get(), line)) {
        file_.Reset();
    }
}

}  // namespace simulation
