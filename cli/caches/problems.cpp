#include "caches/problems.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "caches/entry.h"
#include "caches/flush_lock.h"
#include "caches/kernel_files.h"
#include "caches/kernel_state.h"
#include "caches/running.h"
#include "caches/tuning.h"
#include "caches/unload_record.h"
#include "support/device.h"

namespace cli {
namespace {

// A creation that was killed: what the kernel or the SSD holds of it can be finished, else there is nothing.
std::string UnfinishedProblem(const Cache& cache) {
    const bool isThere = cache.IsUp() || (cache.onSsd && cache.ForeignVolume().empty());
    return isThere ? fmt::format("its creation did not finish: \"vemocachectl load {}\" finishes it",
                                 cache.Name())
                   : fmt::format(
                         "its creation did not finish: \"vemocachectl config remove {} "
                         "--forget-cache\" undoes it",
                         cache.Name());
}

std::string WayOut(const Cache& cache) {
    return fmt::format(
        "\"vemocachectl wipe {} --discard-metadata\" and \"vemocachectl config remove {} --forget-cache\" "
        "end "
        "it",
        cache.Ssd(), cache.Name());
}

// What lies on the SSD of a cache that is not up, and what becomes of it.
std::string ContentProblem(const Cache& cache) {
    const auto dirty = cache.onSsd ? cache.onSsd->dirtyBlocks : std::nullopt;
    const std::string holds = !dirty         ? "its SSD may hold dirty blocks"
                              : *dirty == 0U ? "its SSD holds no dirty block"
                                             : fmt::format("its SSD holds {} dirty blocks ({})", *dirty,
                                                           HumanSize(*dirty * cache.BlockSize()));
    const SinceUnload since = LookSinceUnload(cache);
    if (since.volume == SinceUnload::Volume::kWritten) {
        return fmt::format(
            "{}, and its volume was written since it was unloaded at {}: its blocks are stale; {}", holds,
            since.when, WayOut(cache));
    }
    return fmt::format(
        "{}; load it before the volume is used: once that is written, its blocks are stale, and {}", holds,
        WayOut(cache));
}

std::vector<std::string> ProblemsOfUnloaded(const Cache& cache) {
    const FLASHCACHE_CONFIG& entry = *cache.entry;
    std::vector<std::string> problems;
    if (entry.CreateCritSection != 0) {
        problems.push_back(UnfinishedProblem(cache));
    }
    if (IsSsdMissing(entry)) {
        problems.emplace_back("its SSD is missing");
    }
    if (IsVolumeMissing(entry)) {
        problems.emplace_back("its volume is missing");
    }
    const std::string foreign = cache.ForeignVolume();
    if (problems.empty() && !foreign.empty()) {
        problems.push_back(fmt::format("its SSD holds a cache of another volume, {}", foreign));
    } else if (problems.empty()) {
        problems.push_back(ContentProblem(cache));
    }
    return problems;
}

std::vector<std::string> ProblemsOfUnknown(const Cache& cache) {
    if (!cache.IsUp()) {
        return {"whether it is loaded is not known: the table of a cache device cannot be read"};
    }
    const std::string reason = cache.statError.code == 0 ? "" : ": " + Meaning(cache.statError.code);
    return {"its status cannot be read" + reason};
}

void AddStateProblems(std::vector<std::string>& problems, const Cache& cache,
                      const std::optional<Counts>& knobs) {
    const auto state = knobs ? HandleStateIn(*knobs) : FLASHCACHE_HANDLE_STATE_UNKNOWN;
    const bool flushes = cache.entry != nullptr && cache.entry->FlushState != nullptr &&
                         std::string_view(cache.entry->FlushState) == "flushing";
    if (flushes && !FlushRuns(cache)) {
        problems.push_back(fmt::format(
            "its flush was ended, no process runs it: \"vemocachectl flush {0}\" goes on with it, "
            "\"vemocachectl flush --cancel {0}\" returns it to normal",
            cache.Name()));
    } else if (state == FLASHCACHE_HANDLE_STATE_UNKNOWN) {
        problems.emplace_back("its knobs make up no known handle state");
    } else if (state != FLASHCACHE_HANDLE_STATE_NORMAL && !flushes) {
        problems.push_back(fmt::format("it is in the handle state {}: \"vemocachectl state set {} normal\"",
                                       ToText({"", "", HandleStateText(state)}), cache.Name()));
    }
    if (AttributeOf(cache) == FLASHCACHE_ATTRIBUTE_FORCE_REMOVE) {
        problems.push_back(
            fmt::format("force-remove is on, a flush gives up blocks that cannot be written: "
                        "\"vemocachectl attribute set {} none\"",
                        cache.Name()));
    }
}

// Any error that the kernel counts of the cache; doctor tells them apart.
bool HasErrors(const Cache& cache) {
    const auto errors = ReadCounts(KernelName(cache.Ssd(), cache.Volume()), "flashcache_errors");
    return errors &&
           std::any_of(errors->begin(), errors->end(), [](const auto& error) { return error.second > 0; });
}

std::vector<std::string> ProblemsOfRunning(const Cache& cache) {
    std::vector<std::string> problems;
    if (cache.entryIsUnknown) {
        problems.emplace_back("whether it is configured is not known: the configuration is damaged");
    } else if (cache.entry == nullptr) {
        problems.emplace_back(
            "not configured, it cannot be loaded after a restart: \"vemocachectl config adopt " +
            cache.Name() + "\"");
    } else if (cache.entry->CreateCritSection != 0) {
        problems.push_back(UnfinishedProblem(cache));
    }
    const auto knobs = ReadKnobs(KernelName(cache.Ssd(), cache.Volume()));
    if (cache.MayHoldDirty()) {
        AddStateProblems(problems, cache, knobs);
    }
    const auto tuning = knobs ? TuningIn(*knobs) : std::nullopt;
    const auto differences = tuning && cache.entry != nullptr
                                 ? TuningDifferences(cache.entry->Policy, *tuning)
                                 : std::vector<std::string>();
    if (!differences.empty()) {
        problems.push_back(fmt::format("its tuning is not the configured one, {}: \"vemocachectl load {}\"",
                                       fmt::join(differences, ", "), cache.Name()));
    }
    const auto size = DeviceSize(cache.device);
    const auto volume = DeviceSize(cache.Volume());
    if (size && volume && *size < *volume) {
        problems.push_back(
            fmt::format("its volume is larger than it: \"vemocachectl expand {}\"", cache.Name()));
    } else if (size && volume && *size > *volume) {
        problems.emplace_back("its volume has shrunk below its size");
    }
    if (HasErrors(cache)) {
        problems.push_back(fmt::format(
            "the kernel counts errors of it: \"vemocachectl doctor {}\" tells them", cache.Name()));
    }
    return problems;
}

}  // namespace

bool IsStateKnown(const Cache& cache) {
    // The library cannot describe a write-through cache, although nothing is wrong with it.
    const bool isWriteThrough = cache.pair && cache.pair->mode == FLASHCACHE_WRITE_THRU;
    return cache.IsUp() ? cache.stat || isWriteThrough : !cache.mayBeUp;
}

std::string ProblemOf(const Cache& cache) {
    const auto problems = !IsStateKnown(cache) ? ProblemsOfUnknown(cache)
                          : cache.IsUp()       ? ProblemsOfRunning(cache)
                                               : ProblemsOfUnloaded(cache);
    return fmt::format("{}", fmt::join(problems, "; "));
}

}  // namespace cli
