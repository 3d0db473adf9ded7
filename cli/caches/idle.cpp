#include "caches/idle.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "support/device.h"

namespace cli {

void RequireIdle(const Cache& cache) {
    RequireUnused(cache.device, "cache device");
    const auto holders = Holders(cache.device);
    if (!holders.empty()) {
        throw Failure{fmt::format("the cache device {} is in use", cache.device),
                      fmt::format("it is held open by {}", fmt::join(holders, ", ")),
                      "end these programs, then try again"};
    }
}

}  // namespace cli
