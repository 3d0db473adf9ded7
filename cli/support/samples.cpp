#include "support/samples.h"

#include <unistd.h>

#include <vector>

namespace cli {

bool VisitSamples(int device, std::uint64_t size, std::uint64_t count,
                  const std::function<bool(std::string_view bytes)>& visit) {
    constexpr std::uint64_t kEnd = 1 << 20;
    constexpr std::uint64_t kSample = 1 << 16;
    std::vector<char> buffer(kEnd);
    const auto look = [&](std::uint64_t offset, std::uint64_t length) {
        const ssize_t got = pread(device, buffer.data(), length, static_cast<off_t>(offset));
        return got >= 0 && visit({buffer.data(), static_cast<std::size_t>(got)});
    };
    if (!look(0, kEnd) || !look(size > kEnd ? size - kEnd : 0, kEnd)) {
        return false;
    }
    for (std::uint64_t i = 1; i <= count; ++i) {
        if (!look(size / (count + 1) * i, kSample)) {
            return false;
        }
    }
    return true;
}

}  // namespace cli
