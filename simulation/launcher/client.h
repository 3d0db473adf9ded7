#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "simulation/common/message.h"

namespace simulation {

// Which running appliance is meant: by its state folder, by its process, or, with neither, the one that we
// are on.
struct Which {
    std::string stateFolder;
    pid_t process = 0;  // of vemo-appliance
};

// Sends a request to it. Throws std::runtime_error when there is none, or when it refuses.
std::string SendRequest(const Which& which, const Words& request);

// Runs a command on it, in addition to what runs there, and returns its exit code.
int Enter(const Which& which, const std::vector<std::string>& command);

}  // namespace simulation
