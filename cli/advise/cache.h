// Whether a running cache earns its size.
#pragma once

#include <string>

#include "output/answer.h"

namespace cli {

// By what the kernel has counted of it. Throws a Failure when there is no such cache, or it does not run.
Answer AdviseOnCache(const std::string& name);

}  // namespace cli
