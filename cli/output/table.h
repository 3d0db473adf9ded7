// The text form of records that are alike: one a row.
#pragma once

#include <string>
#include <vector>

#include "output/form.h"
#include "output/record.h"

namespace cli {

// Holds the terminal's width as far as columns may give way; nothing in them is cut.
std::string TableOf(const std::vector<Record>& records, const Form& form);

}  // namespace cli
