#include "caches/loading.h"

#include <fmt/format.h>

#include "caches/entry.h"
#include "caches/flush_lock.h"
#include "caches/metadata.h"
#include "caches/programs.h"
#include "caches/ssd_content.h"
#include "caches/tuning.h"
#include "caches/unload_record.h"
#include "support/background_call.h"
#include "support/device.h"

namespace cli {
namespace {

void CheckBefore(const Cache& cache) {
    if (!IsBlockDevice(cache.Ssd())) {
        throw Failure{
            fmt::format("the SSD {} of the cache {} is not there", cache.Ssd(), cache.Name()),
            "no such device exists",
            fmt::format("bring the SSD back; if it is lost with all that it holds: vemocachectl config "
                        "remove {} --forget-cache",
                        cache.Name()),
            std::nullopt, FailureKind::kNotFound};
    }
    RequireBlockDevice(cache.Volume(), "volume");
    RequireUnused(cache.Ssd(), "SSD");
    RequireUnused(cache.Volume(), "volume");
    if (const std::string foreign = cache.ForeignVolume(); !foreign.empty()) {
        throw Failure{fmt::format("the cache {} cannot be loaded", cache.Name()),
                      fmt::format("the SSD {} holds a cache of the volume {}, not of {}", cache.Ssd(),
                                  foreign, cache.Volume()),
                      fmt::format("vemocachectl probe {}", cache.Ssd()), std::nullopt, FailureKind::kRefused};
    }
}

// What was written to the volume without its cache is newer than the blocks on the SSD, which would hide it.
// False when that is not known.
bool RequireFreshBlocks(const Cache& cache, const Consent& consent) {
    const SinceUnload since = LookSinceUnload(cache);
    if (since.volume == SinceUnload::Volume::kWritten) {
        consent.Require(
            fmt::format("bring up the cache {} with stale blocks: its volume {} was written without "
                        "it, after it was unloaded at {}; reads would give old data, and dirty "
                        "blocks would overwrite new data. To give the blocks up instead: "
                        "vemocachectl wipe {} --discard-metadata; vemocachectl config remove {} "
                        "--forget-cache",
                        cache.Name(), cache.Volume(), since.when, cache.Ssd(), cache.Name()));
    }
    return since.volume != SinceUnload::Volume::kUnknown;
}

Failure WhyNotLoaded(const Cache& cache, const Outcome& outcome) {
    const std::string device = PlaceOf(cache.Ssd(), cache.Volume()).device;
    if (!device.empty()) {
        return LibraryFailure(
            fmt::format("the cache {} is up as {}, but not with its tuning", cache.Name(), device), outcome,
            fmt::format("vemocachectl load {}", cache.Name()));
    }
    Outcome cause = outcome;
    // The look is the work of the tool that hung.
    const Outcome look = outcome.isEnded ? outcome : LookForMetadata(cache.Ssd());
    if (look.result == 0 && !ReadSsdContent(cache.Ssd())) {
        return {
            fmt::format("the cache {} could not be loaded", cache.Name()),
            fmt::format("the SSD {} shows no cache metadata; {}", cache.Ssd(), look.reason),
            fmt::format("see that the right SSD is in place; if the cache was wiped, \"vemocachectl config "
                        "remove {} --forget-cache\" forgets it",
                        cache.Name())};
    }
    if (look.result == 0) {
        cause.reason = look.reason;  // the tool does not work at all, and here its words are kept
    }
    return LibraryFailure(fmt::format("the cache {} could not be loaded", cache.Name()), cause,
                          fmt::format("see that {} is the SSD of this cache and look at dmesg", cache.Ssd()));
}

void RecordLoaded(const Cache& cache, const std::string& device) {
    After(fmt::format("the cache {} is up as {}, but ", cache.Name(), device),
          [&] { MarkLoaded(cache.Name(), true); });
}

// A loading or creation that was killed half-way left the rest of its work.
void FinishLoaded(const Cache& cache) {
    if (cache.entry == nullptr || FlushRuns(cache)) {
        return;
    }
    const bool isTuned = TuningDifferences(cache).empty();
    const bool isRecorded = cache.entry->loaded != 0 && cache.entry->CreateCritSection == 0;
    if (isTuned && isRecorded) {
        return;
    }
    const FlushLock noFlush(cache);  // the record of a loaded cache would cancel a flush
    if (!isTuned) {
        ApplyTuning(cache);
    }
    if (!isRecorded) {
        RecordLoaded(cache, cache.device);
    }
}

}  // namespace

bool LoadCache(const Cache& cache, const Consent& consent) {
    if (cache.IsUp()) {
        FinishLoaded(cache);
        return true;
    }
    RequireKnownState(cache);
    CheckBefore(cache);
    const bool isKnown = RequireFreshBlocks(cache, consent);
    ForgetUnload(cache);
    const std::string ssd = cache.Ssd();
    const std::string volume = cache.Volume();
    const Outcome outcome = Change(
        Uninterrupted, [&] { return LoadStep(ssd, volume, cache.entry->Policy); },
        [&] { return VEMOFlashCacheLoad(ssd.c_str(), volume.c_str(), nullptr, 0); });
    if (outcome.result != 0) {
        throw WhyNotLoaded(cache, outcome);
    }
    RecordLoaded(cache, PlaceOf(ssd, volume).device);
    return isKnown;
}

}  // namespace cli
