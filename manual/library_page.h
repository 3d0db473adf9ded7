// The manual pages of the library, from the comments of its header.
#pragma once

#include <string>

#include "manual/header.h"

namespace manual {

// "vemoflashcache-flush": the page of a section.
std::string PageName(const Section& section);

std::string SectionPage(const Section& section);

// The page of the library as a whole; `example` is a program in C.
std::string LibraryPage(const PublicHeader& header, const std::string& example);

}  // namespace manual
