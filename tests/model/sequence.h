// Sequences of operations: made up from a seed, run against the reference model, and shrunk where one fails.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace model {

struct Step {
    std::size_t operation = 0;  // of AllOperations
    uint32_t choice = 0;
    std::size_t fault = 0;  // what fails beneath it, 0 for nothing
    int call = 1;           // which call of that
    bool stays = false;     // and all from then on

    bool operator==(const Step&) const = default;
};

using Sequence = std::vector<Step>;

Sequence MakeUp(uint32_t seed, std::size_t steps, bool withFaults);

std::string ToText(const Step& step);

struct Failure {
    std::size_t step;
    std::string text;
};

// Runs the sequence from the state of a new appliance on, in a process of its own, so that one that dies is a
// failure like others. `prepare` is called there first.
std::optional<Failure> RunSequence(const Sequence& sequence, const std::function<void()>& prepare = {});

// A sequence in which nothing more can be left out: each of its steps and faults is needed for it to fail.
Sequence Shrink(Sequence sequence, const std::function<bool(const Sequence&)>& fails);

}  // namespace model
