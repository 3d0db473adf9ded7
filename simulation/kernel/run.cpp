#include "simulation/kernel/run.h"

#include <climits>

namespace simulation {

namespace {

void Append(Memory& memory, std::span<char> piece) {
    if (!memory.empty()) {
        iovec& last = memory.back();
        if (static_cast<char*>(last.iov_base) + last.iov_len == piece.data()) {
            last.iov_len += piece.size();
            return;
        }
    }
    memory.push_back({piece.data(), piece.size()});
}

}  // namespace

void Append(std::vector<Run>& runs, uint64_t offset, std::span<char> memory, Step& step) {
    const bool joins = !runs.empty() && runs.back().offset + runs.back().length == offset &&
                       runs.back().isDirty == step.wasDirty && runs.back().memory.size() < IOV_MAX;
    if (!joins) {
        runs.push_back({.offset = offset, .isDirty = step.wasDirty, .memory = {}, .steps = {}});
    }
    Run& run = runs.back();
    run.length += memory.size();
    run.steps.push_back(&step);
    Append(run.memory, memory);
}

}  // namespace simulation
