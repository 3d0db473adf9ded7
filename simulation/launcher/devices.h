#pragma once

#include <list>
#include <map>
#include <string>

#include "base/unique_fd.h"
#include "simulation/common/message.h"
#include "simulation/launcher/loop_device.h"

namespace simulation {

// The appliance's block devices, and the requests for them: what concerns the devices is done here, the rest
// by the simulated kernel. Init does this because loop requests wait for the kernel's daemon, which can so
// not make them.
class Devices {
  public:
    // `devFolder` is the appliance's /dev.
    explicit Devices(base::UniqueFd devFolder) : devFolder_(std::move(devFolder)) {}

    // Makes a disk whose bytes lie in `file`, and returns its loop device.
    int AddDisk(const std::string& path, base::UniqueFd file);
    // Where the kernel takes requests, and the folder of its files.
    void ConnectKernel(base::UniqueFd requests, base::UniqueFd files);

    Answer Handle(const Words& request);
    // Brings what is written to the cache devices, and all that the kernel knows, into a state that can be
    // kept.
    void ShutDown();

  private:
    struct BackedDisk {
        std::string path;
        base::UniqueFd file;
        LoopDevice loop;
    };
    // A live cache device; while it lives, its disks are ours alone.
    struct CacheDevice {
        base::UniqueFd file;
        LoopDevice loop;
        base::UniqueFd ssdClaim;
        base::UniqueFd spaceClaim;
    };

    Answer Bring(const Words& request);
    Answer Remove(const Words& request);
    Answer Expand(const Words& request);
    Answer Grow(const Words& request);
    void MakeNode(const std::string& path, const LoopDevice& loop);
    base::UniqueFd Claim(const std::string& path);

    base::UniqueFd devFolder_;
    base::UniqueFd kernel_;
    base::UniqueFd files_;
    std::list<BackedDisk> disks_;
    std::map<std::string, CacheDevice> caches_;
};

}  // namespace simulation
