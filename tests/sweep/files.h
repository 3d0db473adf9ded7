// What an operation must leave whole: the configuration, folders without leftovers, free locks.
#pragma once

#include <map>
#include <set>
#include <string>

#include "sweep/operations.h"

namespace sweep {

std::set<std::string> Entries(const std::string& folder);

// The state of the files before an operation.
class Files {
  public:
    Files();

    // Puts back what they held.
    void Restore() const;

    // What is wrong with them after the operation, whatever became of it; empty: nothing.
    [[nodiscard]] std::string Wrong(const Operation& operation) const;

    // Names in the folders that were not there and are nobody's file: somebody's work that was left lying.
    [[nodiscard]] std::set<std::string> Leftovers() const;

  private:
    [[nodiscard]] static std::string WrongSections(const std::string& file);

    std::map<std::string, std::set<std::string>> names_;
    std::map<std::string, std::string> texts_;
};

// Which of the library's locks somebody holds; empty: none.
std::string HeldLock();

}  // namespace sweep
