#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace simulation {

// When and how fast dirty blocks are written back, for all caches: from outside the cleaning can be paused
// and slowed, and the time moved forward.
class CleanPace {
  public:
    using Clock = std::chrono::steady_clock;

    // `rate` in blocks per second; 0: as fast as it goes.
    explicit CleanPace(uint64_t rate) : rate_(rate) {}

    Clock::time_point Now() const { return Clock::now() + ahead_; }
    uint64_t Nanoseconds() const {
        return static_cast<uint64_t>(std::chrono::nanoseconds(Now().time_since_epoch()).count());
    }
    void MoveForward(Clock::duration time) { ahead_ += time; }

    void Pause(bool paused) { paused_ = paused; }
    bool Paused() const { return paused_; }
    // Neither paused nor slowed.
    bool IsImmediate() const { return !paused_ && rate_ == 0; }

    // How many blocks may be cleaned now when the last was at `last`, which moves on accordingly.
    uint64_t Budget(Clock::time_point& last) const {
        constexpr uint64_t kBatch = 64;  // then requests get their turn
        if (paused_ || rate_ == 0) {
            return paused_ ? 0 : kBatch;
        }
        const Clock::time_point now = Now();
        last = std::max(last, now - std::max<Clock::duration>(std::chrono::milliseconds(100), Interval()));
        const auto budget = static_cast<uint64_t>((now - last) / Interval());
        last += Interval() * budget;
        return budget;
    }

    // How long to wait, in milliseconds, until there is a budget again; -1: until told.
    int WaitMs() const {
        if (paused_ || rate_ == 0) {
            return paused_ ? -1 : 0;
        }
        const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(Interval()).count();
        return static_cast<int>(std::clamp<int64_t>(wait, 10, 1000));
    }

  private:
    Clock::duration Interval() const {
        return std::max<Clock::duration>(std::chrono::nanoseconds(1'000'000'000 / rate_), Clock::duration(1));
    }

    uint64_t rate_;
    bool paused_ = false;
    Clock::duration ahead_{0};
};

}  // namespace simulation
