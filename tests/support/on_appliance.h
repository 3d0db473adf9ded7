// Whether a test program runs where it may change anything.
#pragma once

#include <fstream>
#include <string>

// On a simulated appliance its kernel's file system is mounted.
inline bool IsOnAppliance() {
    std::ifstream mounts("/proc/self/mounts");
    for (std::string line; std::getline(mounts, line);) {
        if (line.starts_with("vemo-kernel ")) {
            return true;
        }
    }
    return false;
}
