#include "caches/metadata.h"

#include "caches/ssd_content.h"
#include "vemoflashcache.h"

namespace cli {

Outcome LookForMetadata(const std::string& ssd) {
    Outcome outcome = Attempt([&] { return VEMOFlashCacheCheckMetadataExist(ssd.c_str()); });
    if (outcome.reason.empty()) {
        outcome.reason = "the tool that looks for it said nothing";
    }
    return outcome;
}

bool HoldsCache(const std::string& ssd) {
    return VEMOFlashCacheCheckMetadataExist(ssd.c_str()) == 1 || ReadSsdContent(ssd);
}

}  // namespace cli
