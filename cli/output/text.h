// The text form of answers and failures.
#pragma once

#include <string>

#include "output/answer.h"
#include "output/form.h"

namespace cli {

std::string TextOf(const Answer& answer, const Form& form = {});
std::string TextOf(const Failure& failure);

}  // namespace cli
