#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "simulation/launcher/client.h"

namespace simulation {

struct ReplayOptions {
    std::vector<std::string> files;
    std::string device = "/dev/mapper/cachedev_0";
    double speed = 0;  // times as fast as the trace's own times; 0: as fast as it goes
    bool json = false;
};

// Plays the requests of a trace against a cache device of the appliance that we are on, one after the other,
// and prints what became of them and what the kernel has counted since. What it writes tells where and when
// it was written, and each read of that is held against it. Returns 0, or 1 when a request failed or other
// data came back. Throws std::runtime_error when there is no such device, or sizing::Failure of the trace.
int Replay(const ReplayOptions& options);

}  // namespace simulation
