#include "stats/rounds.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <system_error>

#include "base/pipe.h"
#include "base/write_all.h"

namespace cli {

struct RoundsInBackground::Shared {
    std::mutex mutex;
    std::condition_variable changed;
    bool isEndWanted = false;
    bool isOver = false;
    Round round;
    std::exception_ptr error;
    base::Pipe news = base::MakePipe();
};

RoundsInBackground::RoundsInBackground(Watch watch, std::chrono::duration<double> interval)
    : shared_(std::make_shared<Shared>()) {
    if (!shared_->news.read) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    reader_ = std::thread([shared = shared_, watch = std::move(watch), interval]() mutable {
        Read(*shared, std::move(watch), interval);
    });
}

RoundsInBackground::~RoundsInBackground() {
    std::unique_lock lock(shared_->mutex);
    shared_->isEndWanted = true;
    shared_->changed.notify_all();
    const bool isOver =
        shared_->changed.wait_for(lock, std::chrono::seconds(1), [this] { return shared_->isOver; });
    lock.unlock();
    if (isOver) {
        reader_.join();
    } else {
        reader_.detach();
    }
}

void RoundsInBackground::Read(Shared& shared, Watch watch, std::chrono::duration<double> interval) {
    std::unique_lock lock(shared.mutex);
    while (!shared.isEndWanted && !shared.error) {
        const auto next =
            std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::nanoseconds>(interval);
        lock.unlock();
        Round round;
        std::exception_ptr error;
        try {
            round = watch.Look();
        } catch (...) {
            error = std::current_exception();
        }
        lock.lock();
        shared.round = std::move(round);
        shared.error = error;
        base::WriteAll(shared.news.write.Get(), "!");
        shared.changed.wait_until(lock, next, [&] { return shared.isEndWanted; });
    }
    shared.isOver = true;
    shared.changed.notify_all();
}

int RoundsInBackground::Descriptor() const {
    return shared_->news.read.Get();
}

Round RoundsInBackground::Take() {
    const std::scoped_lock lock(shared_->mutex);
    std::array<char, 64> news{};
    // NOLINTNEXTLINE(clang-analyzer-unix.BlockInCriticalSection): who takes was told that there are news.
    [[maybe_unused]] const auto taken = read(shared_->news.read.Get(), news.data(), news.size());
    if (shared_->error) {
        std::rethrow_exception(shared_->error);
    }
    return shared_->round;
}

}  // namespace cli
