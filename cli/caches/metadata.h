// The cache metadata on an SSD.
#pragma once

#include <string>

#include "support/failure.h"

namespace cli {

// The result is 1 when the SSD holds metadata. 0 is no proof that it holds none, since it stands for every
// failure of the tool too: the reason has what the tool said.
Outcome LookForMetadata(const std::string& ssd);

// Whether the tool finds metadata, or else the SSD itself shows it.
bool HoldsCache(const std::string& ssd);

}  // namespace cli
