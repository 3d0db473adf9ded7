#pragma once

#include <string>
#include <vector>

#include "base/unique_fd.h"

namespace simulation {

// A mount that is attached nowhere yet: a copy of what lies at a path, with all mounts below it.
class DetachedMount {
  public:
    explicit DetachedMount(const std::string& path);
    // With all mounts below it.
    DetachedMount& MakeReadOnly();
    void AttachAt(const std::string& target) const;

  private:
    base::UniqueFd tree_;
};

void Mount(const std::string& source, const std::string& target, const char* type, unsigned long flags,
           const std::string& options);
void MountTmpfs(const std::string& target, const char* mode);

// An instance of /proc for our PID namespace that is mounted nowhere.
base::UniqueFd OpenOwnProc();

// The mount points of this mount namespace, in the order in which they were mounted.
std::vector<std::string> MountPoints();

// Whether `path` is `folder` or lies below it.
bool IsWithin(const std::string& path, const std::string& folder);

}  // namespace simulation
