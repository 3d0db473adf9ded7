#include "caches/metadata.h"

#include "vemoflashcache.h"

namespace cli {

Outcome LookForMetadata(const std::string& ssd) {
    Outcome outcome = Attempt([&] { return VEMOFlashCacheCheckMetadataExist(ssd.c_str()); });
    if (outcome.reason.empty()) {
        outcome.reason = "the tool that looks for it said nothing";
    }
    return outcome;
}

}  // namespace cli
