// What people see of a watch: a row a cache, with the course of the last readings.
#pragma once

#include <map>
#include <string>

#include "output/answer.h"
#include "stats/sparkline.h"
#include "stats/watch.h"

namespace cli {

// Keeps the course of each cache.
class Courses {
  public:
    void Add(const Round& round);

    // A row a cache for a terminal of so many columns.
    [[nodiscard]] Answer TableOf(const Round& round, bool hasBlocks, std::size_t columns) const;

  private:
    struct OfCache {
        Course requests;
        Course hits;
    };
    std::map<std::string, OfCache> courses_;
};

// The same for programs, without a course.
Answer RecordsOf(const Round& round);

}  // namespace cli
