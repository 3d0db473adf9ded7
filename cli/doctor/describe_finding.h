// The one description of findings and checks from which text and JSON are formed.
#pragma once

#include <vector>

#include "doctor/check.h"
#include "doctor/finding.h"
#include "output/form.h"
#include "output/record.h"

namespace cli {

Record DescribeFinding(const Finding& finding, const Form& form);

// A line of the list of checks, and all of a check.
Record CheckSummary(const Check& check);
Record CheckDetails(const Check& check);

// How many findings of each severity there are; the muted ones apart.
struct Totals {
    std::uint64_t critical = 0;
    std::uint64_t warning = 0;
    std::uint64_t unknown = 0;
    std::uint64_t info = 0;
    std::uint64_t muted = 0;

    // As monitoring expects it: 0 well, 1 warning, 2 critical, 3 could not tell.
    [[nodiscard]] int ExitCode() const;
    [[nodiscard]] Record Fields(std::uint64_t caches) const;
};
Totals TotalsOf(const std::vector<Finding>& findings);

}  // namespace cli
