// Whose a file is, in folders that everybody may write to.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

namespace base {

// A regular file of root's or of our own user, under no other name as well.
inline bool IsOurs(const struct stat& status) noexcept {
    return S_ISREG(status.st_mode) && status.st_nlink == 1 &&
           (status.st_uid == 0 || status.st_uid == geteuid());
}

}  // namespace base
