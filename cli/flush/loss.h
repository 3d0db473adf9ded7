// Blocks that a flush gave up: with the attribute force-remove, each that the volume refused.
#pragma once

#include <cstdint>
#include <optional>

#include "caches/inventory.h"
#include "caches/lost.h"

namespace cli {

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
