// What is said of a trace and of the cache that it wants.
#pragma once

#include <string>

#include "advise/curve.h"
#include "output/answer.h"
#include "sizing/advice/advice.h"

namespace cli {

// A row a size, and of them all what the trace is and what to do; with all that a cache of the chosen size
// would count, where that is wanted.
Answer DescribeAdvice(const sizing::Advice& advice, bool withCounters);

// Its curve, with the knee and the chosen size.
CurvePicture PictureOf(const sizing::Advice& advice);

// "back", "thru", "around": as options name them.
std::string ModeName(sizing::WriteMode mode);

}  // namespace cli
