// The text form of answers and failures.
#pragma once

#include <string>

#include "output/answer.h"

namespace cli {

std::string TextOf(const Answer& answer);
std::string TextOf(const Failure& failure);

}  // namespace cli
