// Which files are pinned, as the pin tool keeps it.
#pragma once

#include <istream>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace simulation {

// The pinned files by their volume's mount path.
using Pins = std::map<std::string, std::set<std::string>>;

std::vector<std::string> Lines(std::istream& text);

// A volume's mount path in brackets and then its files, one a line; other lines are passed over.
Pins ParsePins(std::istream& text);
std::string TextOf(const Pins& pins);

}  // namespace simulation
