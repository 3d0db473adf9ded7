// What is wrong with a cache, as far as a look at it tells.
#pragma once

#include <string>

#include "caches/inventory.h"

namespace cli {

// Whether it could be told if the cache runs, and how.
bool IsStateKnown(const Cache& cache);

// All that is wrong with it, with the commands that mend it; empty when nothing is.
std::string ProblemOf(const Cache& cache);

}  // namespace cli
