// The rounds of a watch, read in the background.
#pragma once

#include <chrono>
#include <memory>
#include <thread>

#include "stats/watch.h"

namespace cli {

// A tool of the library's that hangs then delays the readings alone, and not the one who shows them.
class RoundsInBackground {
  public:
    RoundsInBackground(Watch watch, std::chrono::duration<double> interval);
    ~RoundsInBackground();  // leaves a reading that hangs to itself
    RoundsInBackground(const RoundsInBackground&) = delete;
    RoundsInBackground& operator=(const RoundsInBackground&) = delete;

    // Can be read when there is a round to take.
    [[nodiscard]] int Descriptor() const;

    // The newest round. Throws what kept the watch from reading it.
    Round Take();

  private:
    struct Shared;
    static void Read(Shared& shared, Watch watch, std::chrono::duration<double> interval);

    std::shared_ptr<Shared> shared_;
    std::thread reader_;
};

}  // namespace cli
