// What is told of the caches as metrics.
#pragma once

#include <vector>

#include "doctor/facts.h"
#include "doctor/finding.h"
#include "metrics/exposition.h"

namespace cli {

// The statistics' fields, the state of each cache, and the findings, muted ones included. What the kernel
// does not show of a cache has no sample; a cache that cannot be described costs its own samples alone.
std::vector<Family> FamiliesOf(const Facts& facts, const std::vector<Finding>& findings);

}  // namespace cli
