#include "support/lifecycle_lock.h"

#include "support/failure.h"
#include "vemoflashcache.h"

namespace cli {
namespace {

constexpr const char* kLockFile = "/run/lock/vemocachectl.lock";

}  // namespace

LifecycleLock::LifecycleLock() {
    if (VEMOFlashCacheLock(kLockFile, 1, &fd_) != 1) {
        throw Failure{"another vemocachectl is changing the caches",
                      std::string("it holds ") + kLockFile + " for more than 30 seconds", "try again later"};
    }
}

LifecycleLock::~LifecycleLock() {
    VEMOFlashCacheUnlock(fd_);
}

}  // namespace cli
