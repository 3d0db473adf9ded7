// The JSON form of answers and failures; each text is one whole object and ends its line.
#pragma once

#include <string>

#include "output/answer.h"

namespace cli {

std::string JsonOf(const Answer& answer);
std::string JsonOf(const Failure& failure);

}  // namespace cli
