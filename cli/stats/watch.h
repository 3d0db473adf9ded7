// Caches that are read again and again.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "stats/fields.h"
#include "stats/reading.h"

namespace cli {

// A cache as a round found it.
struct Observed {
    Reading now;
    std::optional<Reading> before;  // that `now` can be compared with
    std::string event;              // "reset", "vanished", "returned"; empty: none

    [[nodiscard]] Span ToSpan() const { return {now, before ? &*before : nullptr, event}; }
};

struct Round {
    std::vector<Observed> caches;
    std::string remark;  // on the configuration; empty: none
};

// What is made of a cache's reading and the last one before it, if there was one.
Observed Compare(Reading now, const std::optional<Reading>& last);

// What happened to the cache, as a sentence; empty: nothing.
std::string EventText(const Observed& cache);

// Watches the caches of these names, or all that there are at a time. A cache that was seen once is told of
// in every later round.
class Watch {
  public:
    explicit Watch(std::vector<std::string> names) : wanted_(std::move(names)) {}

    // Throws a Failure in the first round when one that was named does not run; later that is an event.
    Round Look();

  private:
    std::vector<std::string> wanted_;  // as they were typed; empty: all
    bool isFirst_ = true;
    std::vector<std::string> order_;  // of the caches' own names
    std::map<std::string, Reading> last_;
};

}  // namespace cli
