// The manual pages of vemocachectl, from the verbs' own data.
#pragma once

#include <string>

#include "verbs/verb.h"

namespace manual {

// The page of a verb, or of a group with all its verbs.
std::string VerbPage(const cli::Verb& verb);

// For the page of the tool: its verbs, the options that all of them take, and the exit codes.
std::string VerbList(const std::vector<cli::Verb>& verbs);
std::string GeneralOptions();
std::string ExitCodes(const std::string& lines);

}  // namespace manual
