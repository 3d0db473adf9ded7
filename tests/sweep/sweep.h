// The sweeps: one harm at a time, at every place where it can come.
#pragma once

#include <climits>
#include <map>
#include <string>

#include "sweep/files.h"

namespace sweep {

struct Options {
    std::string operation;  // empty: all
    std::string kind;       // of harm; empty: all
    int number = 0;         // 0: each
    int every = 1;          // of the numbers, each so-manieth: a sample
};

struct Tally {
    std::map<std::string, int> points;  // tried, by what the sweep tells them by
    int findings = 0;
};

inline bool IsWanted(const std::string& wanted, const std::string& name) {
    return wanted.empty() || wanted == name;
}

// Numbers the places of one kind after another, so that a sample takes each so-manieth of all of them.
class Places {
  public:
    explicit Places(const Options& options) : options_(options) {}

    // Calls `tryPoint` with the numbers of the next kind of place that are wanted, until it says that the
    // operation no longer comes so far. A sample does not look beyond `known`.
    template <typename Try>
    void ForEach(const Try& tryPoint, int known = INT_MAX) {
        int number = options_.number > 0 ? options_.number : 1 + skipped_;
        const bool isKnownAbsent = options_.every > 1 && number > known;
        while (!isKnownAbsent && tryPoint(number) && options_.number == 0) {
            number += options_.every;
        }
        // The next sample begins somewhere else: a step that has no divisor in common with most.
        skipped_ = (skipped_ + 7) % options_.every;
    }

  private:
    const Options& options_;
    int skipped_ = 0;
};

// The n-th allocation, platform call or system call fails, once and from then on.
Tally SweepFaults(const Options& options, const Files& files);

// The operation, or a program that it runs, is killed at its n-th system call.
Tally SweepKills(const Options& options, const Files& files);

// A command of the tool is killed at its n-th step, or a program that it runs.
Tally SweepToolKills(const Options& options, const Files& files);

}  // namespace sweep
