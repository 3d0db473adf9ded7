// The choice and the order that the general options make of an answer, whatever form it is printed in.
#pragma once

#include "output/answer.h"
#include "output/form.h"

namespace cli {

// The answer with the chosen records and fields alone, its records sorted. Throws a Failure that lists the
// keys there are when one is asked for that is not among them.
Answer Shaped(Answer answer, const Form& form);

}  // namespace cli
