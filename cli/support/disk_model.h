// The disks that a block device lies on, as the kernel's /sys tells.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace cli {

struct Disk {
    std::string model;
    std::uint64_t bytes = 0;
};

// Through partitions, RAIDs and device-mapper devices down to the disks. Those without a model (loop devices,
// ...) are left out.
std::vector<Disk> DisksBeneath(const std::string& device);

}  // namespace cli
