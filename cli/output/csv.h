// The CSV form of records, as RFC 4180 has it but for its line ends: a comma between values, quotes where
// they are needed, nothing for what is not known, numbers as in JSON.
#pragma once

#include <string>
#include <vector>

#include "output/record.h"

namespace cli {

// The line of the fields' keys.
std::string CsvHeadingOf(const Record& record);

// A line a record.
std::string CsvOf(const std::vector<Record>& records);

}  // namespace cli
