#pragma once

#include <span>
#include <vector>

#include "simulation/kernel/disk.h"
#include "simulation/kernel/model.h"

namespace simulation {

// Steps whose bytes are neighbours on a disk, read or written in one go.
struct Run {
    uint64_t offset = 0;
    uint64_t length = 0;
    bool isDirty = false;  // the blocks, before: they fail together, so they must be alike
    Memory memory;
    std::vector<Step*> steps;
};

// Adds a step's bytes, which begin at `offset` of the disk, to the last run or as a new one.
void Append(std::vector<Run>& runs, uint64_t offset, std::span<char> memory, Step& step);

}  // namespace simulation
