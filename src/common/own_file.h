// Files of ours in folders that everybody may write to.
#pragma once

#include <sys/types.h>

#include "common/handle.h"
#include "common/log.h"

namespace flashcache {

// In /tmp any user may lay something under a name that we use: a link to a file of root's, a pipe that nobody
// serves, a file with a content of his choice. So a name is ours only where a regular file of root's or of
// our own user lies, under no other name as well; anything else is foreign: never written through, waited on
// or believed.
//
// It suffices to look (or to make it ours) before a program or the platform opens the file by its name: the
// folder is sticky, so that nobody but its owner and root can remove or replace what is ours.

enum class Found { kNothing, kOurs, kForeign };

// What lies at `path`. What is foreign is logged under the caller's own file and line.
Found LookForOurs(const char* path, Where where = Where::current()) noexcept;

// Opens a file of ours to read; empty, with errno, where there is none. What is foreign is logged.
File OpenOurFile(const char* path, Where where = Where::current()) noexcept;

enum class Claim { kMade, kOurs, kFailed };

// Sees to it that a file of ours lies at `path`: removes what is foreign and makes an empty file, of this
// mode less the umask, in one step. Says whether it was made, was there already, or could not be had
// (logged).
Claim ClaimFile(const char* path, mode_t mode, Where where = Where::current()) noexcept;

}  // namespace flashcache
