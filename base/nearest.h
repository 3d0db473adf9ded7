// The nearest kin of a word that is none of those that there are.
#pragma once

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

namespace base {

// How many letters must be put in, left out or replaced to make `one` of `other`.
inline std::size_t EditDistance(std::string_view one, std::string_view other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (const char letter : one) {
        std::size_t diagonal = row[0]++;
        for (std::size_t i = 1; i < row.size(); ++i) {
            const std::size_t replaced = diagonal + (letter == other[i - 1] ? 0 : 1);
            diagonal = row[i];
            row[i] = std::min({replaced, row[i] + 1, row[i - 1] + 1});
        }
    }
    return row.back();
}

// The word of `known` that `word` was probably meant to be; empty when none is near.
inline std::string Nearest(std::string_view word, const std::vector<std::string>& known) {
    const std::string* nearest = nullptr;
    std::size_t least = 1 + word.size() / 3;  // more is another word
    for (const auto& candidate : known) {
        const std::size_t distance = EditDistance(word, candidate);
        if (distance < least || (distance == least && nearest == nullptr)) {
            least = distance;
            nearest = &candidate;
        }
    }
    return nearest == nullptr ? "" : *nearest;
}

}  // namespace base
