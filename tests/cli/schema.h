// Checks answers against the schemas of docs/schema.
#pragma once

#include <string>
#include <vector>

#include "cli/json.h"

namespace tests {

// What is wrong with a document by a JSON Schema, each with its place; nothing: it is valid. Of schemas only
// what ours use is known, and what is not known is wrong: no rule is passed over.
std::vector<std::string> WrongBy(const Json& schema, const Json& document);

}  // namespace tests
