// What a sequence is made of: operations of the library, each with what the reference model expects of it.
#pragma once

#include <functional>
#include <iterator>
#include <random>
#include <utility>
#include <vector>

#include "model/state.h"
#include "support/failing_memory.h"

namespace model {

// The choices that a step makes, the same each time it is made.
class Choice {
  public:
    explicit Choice(uint32_t seed) : random_(seed + 1) { random_.discard(1); }

    std::size_t Below(std::size_t count) { return random_() / 7 % count; }
    template <class Values>
    const auto& Of(const Values& values) {
        return *std::next(std::begin(values), static_cast<std::ptrdiff_t>(Below(std::size(values))));
    }

  private:
    std::minstd_rand random_;
};

// What an operation may leave otherwise than untouched or done, when something beneath it fails.
enum Loose : unsigned { kNothing = 0, kFlushState = 1, kKnobs = 2, kAnswer = 4 };

struct Operation {
    const char* name;
    unsigned weight;
    const char* failure;  // its answer when something beneath it fails
    unsigned loose;
    // Brings the state to what it should be afterwards; returns the answer, as text.
    std::string (*expect)(State& state, Choice choice);
    std::string (*act)(const State& before, Choice choice);
};

std::vector<Operation> ConfigurationOperations();
std::vector<Operation> CacheOperations();
const std::vector<Operation>& AllOperations();

// The allocation that fails in the next call of the library.
inline memory::Plan pendingPlan;

// Calls the library; allocations of the test's own do not fail.
template <class Result, class... Parameters, class... Arguments>
Result Ask(Result (*function)(Parameters...), Arguments... arguments) {
    memory::plan = pendingPlan;
    const Result result = function(arguments...);
    pendingPlan = std::exchange(memory::plan, {});
    return result;
}

// ---- What both kinds share ----

const Entry* FindEntry(const std::optional<Entries>& entries,
                       const std::function<bool(const Entry&)>& matches);

// As writing an entry and as recording a flush state do it; false where there is no entry for the SSD.
void SetEntry(State& state, const Entry& entry);
bool SetFlushState(State& state, const char* ssd, const char* text);

}  // namespace model
