#pragma once

#include <string>

namespace simulation {

// The text of report.json: that of the archive that `path` names, or that very file. Throws
// std::runtime_error where there is none.
std::string ReadReport(const std::string& path);

}  // namespace simulation
