// The report for people.
#pragma once

#include <string>

namespace cli {

// A page that stands alone, made from the document; all that it tells stands there, too.
std::string PageOf(const std::string& document);

}  // namespace cli
