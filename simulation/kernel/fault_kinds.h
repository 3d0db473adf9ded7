// The faults that there are, and the values that they take.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace simulation {

// What is wrong with a fault's name, or with its value; empty when nothing is. `disks` are the names below
// /dev.
std::string WrongFault(const std::string& name, const std::string& value,
                       const std::vector<std::string>& disks);

// A part of a disk.
struct ByteRange {
    uint64_t offset = 0;
    uint64_t length = std::numeric_limits<uint64_t>::max();

    bool IsAll() const { return length == std::numeric_limits<uint64_t>::max(); }
};

// The OFFSET+LENGTH behind an action and a colon, the whole disk where there is none; nothing when it does
// not parse.
std::optional<ByteRange> RangeOf(std::string_view action);

// All faults with the values that they take, for people.
std::string FaultKindsText();

}  // namespace simulation
