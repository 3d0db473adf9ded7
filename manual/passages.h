// The text of a comment as passages.
#pragma once

#include <string_view>
#include <vector>

#include "manual/header.h"

namespace manual {

// `comment` has its marks. `hasTerms`: paragraphs may begin with a term and a point, "Results. ...".
std::vector<Passage> PassagesOf(std::string_view comment, bool hasTerms);

}  // namespace manual
