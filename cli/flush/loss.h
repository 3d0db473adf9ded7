// Blocks that never reached the volume: those that a flush gave up (with the attribute force-remove, each
// that the volume refused), and those that a deletion drops by consent.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "caches/inventory.h"
#include "output/record.h"
#include "support/failure.h"

namespace cli {

struct Lost {
    std::optional<std::uint64_t> blocks = 0;  // nothing: some may be lost, and how many is not known
    std::uint64_t blockSize = 0;              // bytes; 0: not known
    bool isAgreed = false;                    // dropped by consent

    [[nodiscard]] bool IsNone() const { return blocks == 0U; }
    [[nodiscard]] std::vector<Field> Fields() const;
    [[nodiscard]] std::string Text(const Cache& cache) const;  // a sentence
};

// Has a failure tell the loss, too, if there is one.
void AddLoss(Failure& failure, const Cache& cache, const Lost& lost);

// Follows the kernel's count of failed write-backs over one flush. The kernel may begin a new count with a
// flush or go on with the old one, so the count is looked at again and again.
class LossWatch {
  public:
    explicit LossWatch(const Cache& cache);

    void See(std::optional<std::uint64_t> writeErrors);

    // What was lost since the watch began.
    [[nodiscard]] Lost Read();

    // Whether failed write-backs are given up, as it was when the watch began.
    [[nodiscard]] bool GivesUp() const { return gaveUp_; }

  private:
    [[nodiscard]] std::optional<std::uint64_t> Count() const;

    const Cache& cache_;
    bool gaveUp_;
    std::optional<std::uint64_t> dirtyBefore_;
    std::optional<std::uint64_t> before_;
    std::optional<std::uint64_t> last_;
    bool begunAnew_ = false;  // the count has fallen: it holds what came after that alone
};

}  // namespace cli
