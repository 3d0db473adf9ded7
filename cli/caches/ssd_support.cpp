#include "caches/ssd_support.h"

#include <algorithm>

#include "support/failure.h"
#include "vemoflashcache.h"

namespace cli {

std::vector<DiskSupport> SupportOfDisks(const std::string& ssd) {
    std::vector<DiskSupport> found;
    for (const auto& disk : DisksBeneath(ssd)) {
        const FLASHCACHE_SSD_INFO asked{disk.model.c_str(), disk.bytes};
        found.push_back({disk, YesOrNo(Attempt([&] { return VEMOFlashCacheCheckSSDSupport(&asked); }))});
    }
    return found;
}

std::optional<bool> AreSupported(const std::vector<DiskSupport>& disks) {
    const auto is = [](std::optional<bool> answer) {
        return [answer](const DiskSupport& one) { return one.isSupported == answer; };
    };
    if (std::any_of(disks.begin(), disks.end(), is(false))) {
        return false;
    }
    const bool isKnown = !disks.empty() && std::none_of(disks.begin(), disks.end(), is(std::nullopt));
    return isKnown ? std::optional(true) : std::nullopt;
}

}  // namespace cli
