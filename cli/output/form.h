// How answers are shown, as the general options ask for it; the same for every verb.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace cli {

struct Form {
    // NOLINTBEGIN(readability-redundant-member-init): g++ warns of a member left out, unless it has one.
    std::string fields = {};  // keys of the fields to show, in this order, with commas between; empty: all
    std::string sort = {};    // key of the field to sort records by, behind a "-" from high to low
    std::vector<std::string> filters = {};  // texts of filters, all of which a record must pass
    // NOLINTEND(readability-redundant-member-init)
    bool bytes = false;       // sizes as exact numbers of bytes
    bool noHeadings = false;  // text holds values alone: no headings, labels, headlines, remarks on emptiness
    bool quiet = false;       // no remarks, progress and headlines of what went as it should
    bool wide = false;        // tables keep all columns
    std::size_t columns = 0;  // of the terminal that text goes to; 0: none, no limit
    bool isTooLate = false;  // the verb changes things: what is wrong with the form shows when it has done so
};

}  // namespace cli
