// The programs that a process of ours runs.
#pragma once

#include <sys/types.h>

#include <string>

namespace cli {

// A child of this process, as "flashcache_create (process 123)"; empty when there is none.
std::string ChildOf(pid_t parent);

}  // namespace cli
