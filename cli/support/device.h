// Block devices and who uses them, as the kernel tells.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace cli {

bool IsBlockDevice(const std::string& path);

// Why what lies at `path` is no device: "PATH is no block device"; empty when it is one, or nothing lies
// there.
std::string WhyNoDevice(const std::string& path);

// Whether two paths name one device: equal texts, or block devices of one number.
bool SameDevice(const std::string& a, const std::string& b);

// In bytes; nothing when it cannot be told.
std::optional<std::uint64_t> DeviceSize(const std::string& path);

struct Mount {
    std::string device;  // as the table of mounts has it
    std::string folder;
};

// All that is mounted.
std::vector<Mount> Mounts();

// Where the device is mounted.
std::vector<std::string> MountPoints(const std::string& path);

// The processes that hold the device open, as "name (pid)".
std::vector<std::string> Holders(const std::string& path);

// Whether something holds the device exclusively: a mount, another device on top of it, ...
bool IsHeld(const std::string& path);

// What a device holds, such as "a known format (ext4)"; empty when it looks blank: nothing known, and nothing
// but zeros at both ends and in samples over all of it.
std::string Content(const std::string& path);

// Throws a Failure unless `path` names a block device under "/dev/"; `role` is "SSD" or "volume".
void RequireBlockDevice(const std::string& path, const std::string& role);

// Throws a Failure when the device is mounted or held.
void RequireUnused(const std::string& path, const std::string& role);

}  // namespace cli
