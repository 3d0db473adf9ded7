// What a dry run answers.
#pragma once

#include "output/answer.h"
#include "output/form.h"

namespace cli {

// The steps that were noted, what would be lost, and what would come of it.
Answer PlanAnswer(const Form& form);

}  // namespace cli
