// What size of cache the files of a volume want.
#pragma once

#include <string>

#include "output/answer.h"

namespace cli {

// By the stored file statistics of the volume that is mounted there; `ssd` may be empty. Throws a Failure
// when there are none, or no such SSD.
Answer AdviseOnVolume(const std::string& mount, const std::string& ssd);

}  // namespace cli
