#include <fmt/format.h>

#include "caches/inventory.h"
#include "caches/lost.h"
#include "caches/metadata.h"
#include "caches/programs.h"
#include "caches/ssd_content.h"
#include "output/answer.h"
#include "support/background_call.h"
#include "support/consent.h"
#include "support/device.h"
#include "support/dry_run.h"
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

std::string LossOf(const Inventory& inventory, const std::string& ssd, const Lost& held) {
    const auto content = ReadSsdContent(ssd);
    for (const auto& cache : inventory.caches) {
        if (SameDevice(cache.Ssd(), ssd)) {
            return fmt::format("destroy the cache {} on {}, with {}", cache.Name(), ssd,
                               HeldAlone(held, content ? content->volume : cache.Volume()));
        }
    }
    const std::string unknown =
        inventory.ConfigProblem() == nullptr
            ? ""
            : "; whether it is a configured one is not known: " + ConfigRemark(inventory);
    if (content) {
        return fmt::format("destroy the cache on {}, with {}{}", ssd, HeldAlone(held, content->volume),
                           unknown);
    }
    return fmt::format(
        "destroy the cache on {}, if it holds one, with all blocks that are not yet on its volume{}", ssd,
        unknown);
}

void TellWiped(const Context& context, const std::string& ssd, const Lost& lost) {
    Record record{{{"ssd", "SSD", ssd}}};
    std::string headline = fmt::format("Wiped the cache metadata on {}.", ssd);
    AddLoss(record, headline, "", lost);
    Print(One("wiped", record, headline), context.json);
}

void WipeAgreed(const Context& context, const WipeOptions& options, const Consent& consent) {
    const LifecycleLock lock("wipe");
    const Inventory inventory = TakeInventory();
    RequireAllKnown(inventory, fmt::format("the SSD {} is free", options.ssd));
    RequireNoCache(inventory, options.ssd);
    RequireUnused(options.ssd, "SSD");
    const Lost held = LostWith(options.ssd);
    consent.Require(LossOf(inventory, options.ssd, held));
    const Outcome outcome = Change(
        Uninterrupted, [&] { return WipeStep(options.ssd); },
        [&] { return VEMOFlashCacheDestroy(options.ssd.c_str()); });
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
    TellWiped(context, options.ssd, held);
}

void Wipe(const Context& context, const WipeOptions& options) {
    RequireBlockDevice(options.ssd, "SSD");
    WithConsent({"--discard-metadata", options.discardMetadata, !context.json},
                [&](const Consent& consent) { WipeAgreed(context, options, consent); });
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
