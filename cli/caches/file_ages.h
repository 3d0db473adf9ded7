// The stored file statistics.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "output/record.h"

namespace cli {

// What was last touched in one span of time.
struct Age {
    std::string kind;  // "day" or "level"
    std::string span;
    Value files;  // levels count bytes alone
    std::uint64_t bytes = 0;
};

struct AgedVolume {
    std::string id;
    std::string time;  // of the count
    std::vector<Age> ages;
};

// The levels of age, the youngest first; they hold all of a volume, days its last week alone.
inline constexpr std::array kAgeLevels = {"today", "1 to 6 days ago", "7 to 29 days ago", "before"};

// Under which name a volume's files are counted unless another is given: the last part of its mount path.
std::string CountedAs(const std::string& mount);

// In the file's order; none without statistics. Throws a Failure when they cannot be read.
std::vector<AgedVolume> ReadAgedVolumes();

// A record for each day and each level of age of each volume, in the file's order; as ReadAgedVolumes.
std::vector<Record> ReadFileAges();

}  // namespace cli
