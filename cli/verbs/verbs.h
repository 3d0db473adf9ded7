// The verbs of the tool, in the order in which its help tells them.
#pragma once

#include <vector>

#include "verbs/verb.h"

namespace cli {

std::vector<Verb> AllVerbs();

}  // namespace cli
