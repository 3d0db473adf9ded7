// The stored file statistics.
#pragma once

#include <vector>

#include "output/record.h"

namespace cli {

// A record for each day and each level of age of each volume, in the file's order; none without statistics.
// Throws a Failure when they cannot be read.
std::vector<Record> ReadFileAges();

}  // namespace cli
