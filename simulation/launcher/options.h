#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/unique_fd.h"
#include "simulation/launcher/reported_state.h"

namespace simulation {

// What to boot.
struct Options {
    std::string stateFolder;              // "": nothing is kept
    unsigned pairs = 1;                   // of SSD and volume
    std::vector<std::string> namedPairs;  // further ones, each "md30+vg1/volume_10": names below /dev
    uint64_t ssdBytes = 1ULL << 30;
    uint64_t volumeBytes = 1ULL << 30;
    uint64_t cleanRate = 0;                 // blocks per second, 0: as fast as it goes
    std::optional<uint64_t> volatileSeed;   // disks have a volatile cache; chooses what a power cut takes
    std::optional<ReportedState> reported;  // boots into this, with its disks and no others
    std::shared_ptr<base::UniqueFd> trace;  // what is asked of the cache devices goes there; may be none
    std::vector<std::string> command;
};

// Exit codes of our own, as env(1) has them; otherwise the command's own, or 128 and its signal.
inline constexpr int kExitFailed = 125;
inline constexpr int kExitCannotRun = 126;
inline constexpr int kExitNotFound = 127;
inline constexpr int kExitPowerCut = 137;  // as if SIGKILL had ended the command

}  // namespace simulation
