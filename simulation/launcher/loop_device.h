#pragma once

#include <sys/types.h>

#include <set>
#include <string>

#include "base/unique_fd.h"

namespace simulation {

// A loop device of the machine, for as long as we hold it: when the last holder closes it, even by being
// killed, the machine takes it back.
class LoopDevice {
  public:
    // Puts a free loop device over `file`. Nodes are made in the folder `devFolder`, which has a
    // loop-control.
    LoopDevice(int devFolder, int file);

    int Fd() const { return node_.Get(); }
    dev_t Number() const;
    // Ends the device; false, and nothing is changed, when somebody else holds it open.
    bool Detach();
    // Takes over the present size of the file beneath.
    void FollowFile() const;

  private:
    base::UniqueFd node_;
};

// Takes the loop devices away again that the machine has more than when this began and that nobody uses.
class LoopDevicesOfMachine {
  public:
    LoopDevicesOfMachine();
    ~LoopDevicesOfMachine();
    LoopDevicesOfMachine(const LoopDevicesOfMachine&) = delete;
    LoopDevicesOfMachine& operator=(const LoopDevicesOfMachine&) = delete;

  private:
    std::set<std::string> before_;
};

}  // namespace simulation
