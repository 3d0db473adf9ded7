// The report as one JSON document, from which its page is made and the state can be rebuilt.
#pragma once

#include <string>

#include "report/collect.h"
#include "report/stand_ins.h"

namespace cli {

// Raised only when a key of the document changes its meaning or goes.
inline constexpr int kReportVersion = 1;

// The document; with `standIns` all names in it are replaced, else they are as they are.
std::string DocumentOf(const Collected& all, StandIns* standIns);

}  // namespace cli
