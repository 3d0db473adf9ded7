// Names that options choose from.
#pragma once

#include <string>
#include <vector>

namespace cli {

// The keys of a map from names to values.
template <typename Map>
std::vector<std::string> NamesOf(const Map& map) {
    std::vector<std::string> names;
    names.reserve(map.size());
    for (const auto& entry : map) {
        names.push_back(entry.first);
    }
    return names;
}

}  // namespace cli
