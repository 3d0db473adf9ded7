// The tool's lock files, which lie in a folder that everybody may write to.
#pragma once

#include <string>

#include "base/unique_fd.h"

namespace cli {

// Opens the lock file, which is made when absent. Throws a Failure when it cannot be had, or when a link, a
// pipe, or somebody else's file lies there: what others laid there is never written through or locked. Once
// it is ours it stays so, since the folder lets nobody else replace it.
base::UniqueFd OpenLockFile(const std::string& path);

}  // namespace cli
