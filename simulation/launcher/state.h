#pragma once

#include <sys/types.h>

#include <string>

#include "base/unique_fd.h"

namespace simulation {

// Where the appliance's disks, log and configuration lie: in a folder that is kept, or in files that have no
// name and so are gone with the last process.
class State {
  public:
    // An empty `folder`: nothing is kept. Throws std::runtime_error where the folder belongs to a running
    //  appliance; one that is just going down is waited for.
    explicit State(std::string folder);

    bool IsKept() const { return !folder_.empty(); }
    // The file of a disk; made sparse with `size` bytes when it is not there yet.
    base::UniqueFd OpenDisk(const std::string& name, uint64_t size) const;
    // The file beside a kept disk that tells what that has not flushed, made if wanted; none where there is
    // none.
    base::UniqueFd OpenUnflushed(const std::string& diskName, bool make) const;
    void RemoveUnflushed(const std::string& diskName) const;
    base::UniqueFd OpenLog() const;
    // The path of a folder that is kept, made if need be.
    std::string Folder(const std::string& name) const;
    // Notes in the lock file which processes run here.
    void Publish(pid_t launcher, pid_t init) const;

  private:
    base::UniqueFd OpenFile(const std::string& name, int extraFlags) const;
    void Lock();

    std::string folder_;
    base::UniqueFd lock_;
};

// The init process of the appliance that runs on a state folder; 0 when none does.
pid_t RunningInit(const std::string& folder);

}  // namespace simulation
