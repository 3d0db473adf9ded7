// The programs by which the caches are managed.
#pragma once

#include <array>
#include <string_view>

namespace simulation {

// Those that the appliance brings along.
inline constexpr std::array<std::string_view, 10> kAppliancePrograms = {
    "/usr/bin/flashcache_create",
    "/usr/bin/flashcache_load",
    "/usr/bin/flashcache_destroy",
    "/usr/bin/flashcache_expand",
    "/sbin/dmsetup",
    "/sbin/insmod",
    "/sbin/rmmod",
    "/usr/vemo/sbin/vemocachepinfiletool",
    "/usr/vemo/bin/vemoiscsiep",
    "/usr/bin/vemo-update-server",
};

// Those of the machine that are run as well; they are the machine's own until a fault of one is set.
inline constexpr std::array<std::string_view, 7> kMachinePrograms = {
    "/bin/cat", "/bin/cp", "/bin/mv", "/sbin/lsmod", "/sbin/sysctl", "/usr/bin/lsof", "/usr/bin/wget",
};

// Where the machine's own program goes when one of ours stands in its place.
inline constexpr const char* kRealSuffix = ".real";

}  // namespace simulation
