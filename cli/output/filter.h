// The choice among records by what a field holds: "state=running", "dirty_bytes>100M", "problem!=null".
#pragma once

#include <string>

#include "output/record.h"

namespace cli {

struct Filter {
    enum class Test { kEqual, kUnequal, kLess, kGreater, kAtMost, kAtLeast };

    std::string key;
    Test test = Test::kEqual;
    std::string value;
};

// Why a text is no filter, else empty.
std::string WhyNoFilter(const std::string& text);

// The filter in a text that is one.
Filter FilterOf(const std::string& text);

// Whether the field's value is such. What is not known equals "null" alone, and is neither more nor less than
// anything. Throws a Failure when the value cannot be compared with the field's: a word with a number.
bool Passes(const Field& field, const Filter& filter);

}  // namespace cli
