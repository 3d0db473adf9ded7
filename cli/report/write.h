// The report as one archive.
#pragma once

#include <string>

#include "report/collect.h"

namespace cli {

// The bytes of a tar.gz with report.json, index.html, and what was read as it is, in files of their own. With
// `isPlain` all names stay.
std::string ArchiveOf(const Collected& all, bool isPlain);

}  // namespace cli
