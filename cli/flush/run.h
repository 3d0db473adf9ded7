// A flush from its start to a known end, shown meanwhile.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "caches/inventory.h"
#include "flush/progress.h"

namespace cli {

enum class FlushEnd { kDone, kCancelled };

// Blocks that a flush gave up, since the volume refused them and the attribute force-remove told it to go on.
struct Lost {
    std::optional<std::uint64_t> blocks = 0;  // nothing: not known
    std::uint64_t blockSize = 0;              // bytes; 0: not known

    [[nodiscard]] bool IsNone() const { return blocks == 0U; }
    [[nodiscard]] std::vector<Field> Fields() const;
    [[nodiscard]] std::string Text(const Cache& cache) const;  // a sentence
};

struct Flushed {
    FlushEnd end = FlushEnd::kDone;
    Lost lost;
};

// Flushes a running cache. Ctrl-C (and SIGTERM, SIGHUP) cancels; the call then returns once the device is
// back in its former state. Throws a Failure when the flush failed.
Flushed RunFlush(const Cache& cache, bool json);

// Shows a flush that runs in another process until it is over. Ctrl-C stops the showing alone.
void FollowFlush(const Cache& cache, bool json);

// Cancels a flush that runs in another process and waits until the device has left the state Flush.
void CancelFlush(const Cache& cache);

}  // namespace cli
