#include <fmt/format.h>

#include "caches/inventory.h"
#include "caches/metadata.h"
#include "caches/ssd_content.h"
#include "output/answer.h"
#include "support/background_call.h"
#include "support/consent.h"
#include "support/device.h"
#include "support/lifecycle_lock.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct WipeOptions {
    std::string ssd;
    bool discardMetadata = false;
};

void RequireNoCache(const Inventory& inventory, const std::string& ssd) {
    for (const auto& cache : inventory.caches) {
        if (cache.IsUp() && SameDevice(cache.Ssd(), ssd)) {
            throw Failure{fmt::format("the SSD {} is in use", ssd),
                          fmt::format("the cache {} runs on it as {}", cache.Name(), cache.device),
                          fmt::format("vemocachectl unload {}", cache.Name())};
        }
    }
}

std::string LossOf(const Inventory& inventory, const std::string& ssd) {
    for (const auto& cache : inventory.caches) {
        if (SameDevice(cache.Ssd(), ssd)) {
            return fmt::format(
                "destroy the cache {} on {}, with all blocks that are not yet on its volume {}", cache.Name(),
                ssd, cache.Volume());
        }
    }
    return fmt::format(
        "destroy the cache on {}, if it holds one, with all blocks that are not yet on its volume", ssd);
}

void Wipe(const Context& context, const WipeOptions& options) {
    RequireBlockDevice(options.ssd, "SSD");
    const LifecycleLock lock("wipe");
    const Inventory inventory = TakeInventory();
    if (inventory.ConfigProblem() != nullptr && !context.json) {
        Note("whether a configured cache lies on the SSD is not known: " + ConfigRemark(inventory));
    }
    RequireAllKnown(inventory, fmt::format("the SSD {} is free", options.ssd));
    RequireNoCache(inventory, options.ssd);
    RequireUnused(options.ssd, "SSD");
    RequireConsent({LossOf(inventory, options.ssd), "--discard-metadata"}, options.discardMetadata,
                   !context.json);
    const Outcome outcome = Uninterrupted([&] { return VEMOFlashCacheDestroy(options.ssd.c_str()); });
    // A tool that failed shows in the error slot alone.
    if (outcome.slot.code != 0) {
        if (const Outcome look = LookForMetadata(options.ssd);
            look.result == 0 && !ReadSsdContent(options.ssd)) {
            throw Failure{fmt::format("nothing was wiped on {}", options.ssd),
                          fmt::format("the SSD shows no cache metadata; {}", look.reason), ""};
        }
    }
    if (outcome.result != 0 || outcome.slot.code != 0) {
        throw LibraryFailure(fmt::format("the SSD {} could not be wiped", options.ssd), outcome,
                             "mend the cause, then repeat the command");
    }
    Print(One("wiped", Record{{{"ssd", "SSD", options.ssd}}},
              fmt::format("Wiped the cache metadata on {}.", options.ssd)),
          context.json);
}

std::vector<Argument> DeclareWipe(WipeOptions& options) {
    return {{.name = "SSD",
             .help = "device path of the SSD",
             .target = &options.ssd,
             .required = true,
             .completion = Completion::kDevice},
            {.name = "--discard-metadata",
             .help = "consent to the loss; asked for on a terminal when left out",
             .target = &options.discardMetadata}};
}

}  // namespace

Verb WipeVerb() {
    return MakeVerb<WipeOptions>("wipe",
                                 "Wipe the cache metadata on an SSD; what lies in that cache alone is lost",
                                 "vemocachectl wipe /dev/md3 --discard-metadata", DeclareWipe, Wipe);
}

}  // namespace cli
