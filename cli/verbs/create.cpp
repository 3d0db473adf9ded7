#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "caches/describe.h"
#include "caches/entry.h"
#include "caches/fresh_pair.h"
#include "caches/inventory.h"
#include "caches/loading.h"
#include "caches/lost.h"
#include "caches/memory_need.h"
#include "caches/metadata.h"
#include "caches/programs.h"
#include "caches/running.h"
#include "caches/ssd_content.h"
#include "caches/ssd_support.h"
#include "caches/tuning.h"
#include "output/answer.h"
#include "support/background_call.h"
#include "support/consent.h"
#include "support/device.h"
#include "support/dry_run.h"
#include "support/lifecycle_lock.h"
#include "support/names.h"
#include "support/signals.h"
#include "verbs/entry_arguments.h"
#include "verbs/verb.h"

namespace cli {
namespace {

const std::map<std::string, std::int32_t> kModes = {{"thru", FLASHCACHE_WRITE_THRU},
                                                    {"back", FLASHCACHE_WRITE_BACK},
                                                    {"around", FLASHCACHE_WRITE_AROUND},
                                                    {"back_bypass", FLASHCACHE_WRITE_BACK_BYPASS},
                                                    {"back_crash", FLASHCACHE_WRITE_BACK_CRASH}};
const std::map<std::string, std::int32_t> kReclaimPolicies = {{"lru", FLASHCACHE_RECLAIM_LRU},
                                                              {"fifo", FLASHCACHE_RECLAIM_FIFO}};
const std::map<std::string, std::int32_t> kFormats = {{"new", FLASHCACHE_VERSION_NEW},
                                                      {"original", FLASHCACHE_VERSION_ORIGINAL}};

struct CreateOptions {
    std::string ssd;
    std::string volume;
    ByteSize size;  // 0: all of the SSD
    std::string mode = "back";
    std::string reclaimPolicy = "lru";
    std::string format = "new";
    FLASHCACHE_POLICY tuning{};
    bool skipSequential = false;
    std::string name;
    std::string mountPath;
    std::string device;
    bool discardContent = false;
};

void RequireNewDevice(const std::string& device) {
    const std::string stranger = WhyNoDevice(device);
    if (!device.empty() && (IsBlockDevice(device) || !stranger.empty())) {
        throw Failure{fmt::format("the cache device {} exists already", device), stranger,
                      "name another, or none for the first that is free", std::nullopt, FailureKind::kInUse};
    }
}

std::uint64_t BlockSize(const CreateOptions& options) {
    return kFormats.at(options.format) == FLASHCACHE_VERSION_NEW ? 64 * 1024 : 4 * 1024;
}

std::uint64_t SizeFor(const CreateOptions& options) {
    const std::uint64_t available = DeviceSize(options.ssd).value_or(0);
    const std::uint64_t size = options.size.bytes == 0 ? available : options.size.bytes;
    if (size > available) {
        throw Failure{fmt::format("a cache of {} does not fit", HumanSize(size)),
                      fmt::format("the SSD {} has {}", options.ssd, HumanSize(available)),
                      "name a smaller --size", std::nullopt, FailureKind::kRefused};
    }
    const std::uint64_t smallest = BlockSize(options);
    if (size < smallest) {
        throw Failure{fmt::format("a cache of {} is too small", HumanSize(size)),
                      fmt::format("the format {} has blocks of {}, and one must fit; the SSD {} has {}",
                                  options.format, HumanSize(smallest), options.ssd, HumanSize(available)),
                      "name a larger --size", std::nullopt, FailureKind::kRefused};
    }
    return size;
}

FLASHCACHE_CREATE_PARAM ParamFor(const CreateOptions& options) {
    FLASHCACHE_CREATE_PARAM param{};
    param.SSDDevPath = options.ssd.c_str();
    param.SpacePath = options.volume.c_str();
    param.CacheDevPath = options.device.empty() ? nullptr : options.device.c_str();
    param.CacheSizeKB = SizeFor(options) / 1024;
    param.Policy = options.tuning;
    param.Policy.WriteMode = kModes.at(options.mode);
    param.Policy.ReclaimPolicy = kReclaimPolicies.at(options.reclaimPolicy);
    param.Policy.SkipSeqIO = options.skipSequential ? 1 : 0;
    param.CacheVersion = kFormats.at(options.format);
    return param;
}

// What the SSD holds now, as a text; empty: nothing.
std::string ContentOf(const std::string& ssd, const Lost& held) {
    if (const auto content = ReadSsdContent(ssd)) {
        return "a cache with " + HeldAlone(held, content->volume);
    }
    return HoldsCache(ssd) ? "a cache" : Content(ssd);
}

void RequireConsentToContent(const Consent& consent, const std::string& ssd, const std::string& content) {
    if (!content.empty()) {
        consent.Require(fmt::format("overwrite the SSD {}, which holds {}", ssd, content));
    }
}

// What a creation will make.
struct Prospect {
    std::uint64_t blocks = 0;
    std::uint64_t blockSize = 0;
    std::uint64_t memory = 0;  // of the kernel, in bytes
    std::optional<bool> isSupported;
    std::string content;  // what the SSD holds now
};

// Whole blocks, each with an entry of 8 bytes in the list that is kept beside them on the SSD.
Prospect ProspectOf(const CreateOptions& options, const FLASHCACHE_CREATE_PARAM& param,
                    const std::string& content) {
    constexpr std::uint64_t kListEntry = 8;
    const std::uint64_t blockSize = BlockSize(options);
    const std::uint64_t room = DeviceSize(options.ssd).value_or(0) / (blockSize + kListEntry);
    const std::uint64_t blocks = std::min(param.CacheSizeKB * 1024 / blockSize, room);
    return {blocks, blockSize, MemoryOfCache(param.CacheVersion, blocks * blockSize),
            AreSupported(SupportOfDisks(options.ssd)), content};
}

std::string SupportText(std::optional<bool> isSupported) {
    return !isSupported   ? "whether this SSD is supported is not known"
           : *isSupported ? "its SSD is supported"
                          : "its SSD is NOT SUPPORTED on this appliance";
}

void TellProspect(const Context& context, const Prospect& prospect) {
    const std::uint64_t bytes = prospect.blocks * prospect.blockSize;
    if (IsDryRun()) {
        NoteOutlook({"size_bytes", "Size of the cache", bytes, Format::kBytes});
        NoteOutlook({"block_size_bytes", "Size of its blocks", prospect.blockSize, Format::kBytes});
        NoteOutlook({"memory_bytes", "Kernel memory it takes", prospect.memory, Format::kBytes});
        NoteOutlook({"ssd_supported", "SSD supported here", KnownFlag(prospect.isSupported)});
        NoteOutlook({"ssd_content", "SSD holds now", KnownText(prospect.content)});
    } else if (!context.json) {
        Note(fmt::format("the cache will have {} in {} blocks of {} and take {} of the kernel's memory; {}",
                         HumanSize(bytes), prospect.blocks, HumanSize(prospect.blockSize),
                         HumanSize(prospect.memory), SupportText(prospect.isSupported)));
    }
}

Step CreateStep(const FLASHCACHE_CREATE_PARAM& param) {
    return {"VEMOFlashCacheCreate",
            {param.SSDDevPath, param.SpacePath, fmt::format("{}k", param.CacheSizeKB)},
            CreatingCache(param)};
}

// A creation that failed half-way may have left its device up, with nothing in it yet. Says what became of
// everything.
std::string Undo(const std::string& section, const FLASHCACHE_CREATE_PARAM& param) {
    const Place place = PlaceOf(param.SSDDevPath, param.SpacePath);
    if (!place.isKnown) {
        throw Failure{"the cache could not be created, and whether its device is up is not known",
                      "the table of a cache device cannot be read; the entry stays and says so",
                      fmt::format("vemocachectl list; when {0} is up: vemocachectl unload {0}; "
                                  "vemocachectl config remove {0} --forget-cache",
                                  section),
                      std::nullopt, FailureKind::kUnknownState};
    }
    if (!place.device.empty()) {
        const Outcome outcome = Uninterrupted([&] { return VEMOFlashCacheUnload(place.device.c_str()); });
        if (outcome.result != 0) {
            throw LibraryFailure(
                fmt::format("the cache could not be created, and its device {} is still up", place.device),
                outcome,
                fmt::format("vemocachectl unload {0}; vemocachectl config remove {0} --forget-cache",
                            section));
        }
        Uninterrupted([&] { return VEMOFlashCacheDestroy(param.SSDDevPath); });
    }
    const bool isLeft = HoldsCache(param.SSDDevPath);
    After("the cache could not be created; its device is down, but ", [&] { RemoveEntry(section); });
    return isLeft ? fmt::format("the SSD still holds its metadata: vemocachectl wipe {} --discard-metadata",
                                param.SSDDevPath)
                  : "nothing of it is left, but the SSD may have lost its content";
}

void WriteFirst(const NewEntry& entry, const FLASHCACHE_CREATE_PARAM& param) {
    try {
        WriteEntry(entry, param);
    } catch (Failure& failure) {
        // The permanent file may have it, and the copy not.
        const bool isLeft = !TakeBackEntry(entry.section);
        failure.what = fmt::format("no cache was made: {}; {}", failure.what,
                                   isLeft ? "the entry stays" : "nothing of it is left");
        if (isLeft) {
            failure.next += fmt::format("; vemocachectl config remove {} --forget-cache", entry.section);
        }
        throw;
    }
}

// The entry is written first: no cache may come to be that nothing on this machine knows of.
void CreateWithEntry(const NewEntry& planned, const FLASHCACHE_CREATE_PARAM& param) {
    NewEntry entry = planned;
    entry.unfinished = true;
    WriteFirst(entry, param);
    Outcome outcome = Change(
        Uninterrupted, [&] { return CreateStep(param); },
        [&] { return VEMOFlashCacheCreate(&param, nullptr, 0); });
    if (outcome.result != 0) {
        // The SSD is wiped first, which fails without harm on one that holds no cache.
        if (outcome.slot.file == "flashcache_destroy.cpp") {
            outcome.slot = {};
        }
        const std::string left = Undo(entry.section, param);
        throw LibraryFailure(fmt::format("the cache on {} could not be created; {}", param.SSDDevPath, left),
                             outcome, "mend the cause, then repeat the command");
    }
    entry.unfinished = false;
    entry.loaded = true;
    After(fmt::format("the cache {0} is up as {1}, and \"vemocachectl load {0}\" finishes its entry, but ",
                      entry.section, PlaceOf(param.SSDDevPath, param.SpacePath).device),
          [&] { WriteEntry(entry, param); });
}

void TellCreated(const Context& context, const Cache& cache, const Lost& lost) {
    Record record = Summary(cache);
    std::string headline = fmt::format("Created the cache {}: use {} in place of {}.", cache.Name(),
                                       cache.device, cache.Volume());
    AddLoss(record, headline, "", lost);
    Print(One("cache", record, headline), context.json);
}

// A creation of this cache that was killed half-way: its entry says so.
const Cache* Begun(const Inventory& inventory, const CreateOptions& options) {
    const auto begun = std::ranges::find_if(inventory.caches, [&](const Cache& cache) {
        return cache.entry != nullptr && cache.entry->CreateCritSection != 0 &&
               SameDevice(cache.Ssd(), options.ssd) && SameDevice(cache.Volume(), options.volume);
    });
    return begun == inventory.caches.end() ? nullptr : &*begun;
}

void RequireSameWish(const Cache& begun, const FLASHCACHE_CREATE_PARAM& param) {
    const FLASHCACHE_POLICY& was = begun.entry->Policy;
    const FLASHCACHE_POLICY& is = param.Policy;
    if (was.WriteMode != is.WriteMode || was.ReclaimPolicy != is.ReclaimPolicy ||
        was.SkipSeqIO != is.SkipSeqIO || was.DelaySeconds != is.DelaySeconds ||
        was.DirtyThreshPercent != is.DirtyThreshPercent || begun.entry->CacheVersion != param.CacheVersion) {
        throw Failure{
            fmt::format("the cache {} is up, and its creation did not finish", begun.Name()),
            "it was begun with other options than these",
            fmt::format("vemocachectl load {0} finishes it as it was begun; vemocachectl delete {0} "
                        "makes room for another",
                        begun.Name()),
            std::nullopt, FailureKind::kInUse};
    }
}

// The cache came up before its creation was killed: what is left are its tuning and its record.
void FinishBegun(const Context& context, const Cache& begun, const CreateOptions& options,
                 const Consent& consent) {
    RequireSameWish(begun, ParamFor(options));
    Note(fmt::format("a creation of {} was begun before and did not finish: this finishes it", begun.Name()));
    LoadCache(begun, consent);
    if (!IsDryRun()) {
        Inventory after = TakeInventory();
        TellCreated(context, Find(after, begun.Name()), Lost{});
    }
}

// The cache did not come up before its creation was killed: its entry, whose name this returns, is all that
// there is of it and gives way.
std::string PassOver(Inventory& inventory, const Cache& begun) {
    RequireKnownState(begun);
    std::string name = begun.Name();
    Note(fmt::format("a creation of {} was begun before and did not finish: this begins it anew", name));
    std::erase_if(inventory.caches, [&](const Cache& cache) { return cache.Name() == name; });
    return name;
}

void CreateAgreed(const Context& context, const CreateOptions& options, const Consent& consent) {
    const LifecycleLock lock("create");
    Inventory inventory = TakeInventory();
    RequireWholeConfig(inventory);
    std::string left;  // of an earlier attempt
    if (const Cache* const begun = Begun(inventory, options); begun != nullptr) {
        if (begun->IsUp()) {
            FinishBegun(context, *begun, options, consent);
            return;
        }
        left = PassOver(inventory, *begun);
    }
    RequireAllKnown(inventory, fmt::format("the SSD {} is free", options.ssd));
    RequireFreshPair(inventory, options.ssd, options.volume);
    RequireNewDevice(options.device);
    const FLASHCACHE_CREATE_PARAM param = ParamFor(options);
    const NewEntry entry{FreshName(inventory, options.name, options.ssd, options.volume), NewUuid(),
                         options.mountPath.empty() ? DefaultMountPath(options.volume) : options.mountPath};
    const Lost held = LostWith(options.ssd);
    const std::string content = ContentOf(options.ssd, held);
    TellProspect(context, ProspectOf(options, param, content));
    RequireConsentToContent(consent, options.ssd, content);
    if (param.Policy.WriteMode == FLASHCACHE_WRITE_THRU) {
        Note("the status of a write-through cache cannot be read: its counters will not be shown");
    }
    const SignalsHeld signals;
    if (!left.empty()) {
        RemoveEntry(left);
    }
    CreateWithEntry(entry, param);
    if (IsDryRun()) {
        return;
    }
    Inventory after = TakeInventory();
    TellCreated(context, Find(after, entry.section), held);
}

void Create(Context& context, const CreateOptions& options) {
    WithConsent({"--discard-content", options.discardContent, !context.json},
                [&](const Consent& consent) { CreateAgreed(context, options, consent); });
}

std::string CheckDeviceName(const std::string& path) {
    return path.starts_with("/dev/mapper/cachedev") && path.find('/', 12) == std::string::npos
               ? ""
               : "a cache device is /dev/mapper/cachedev_N";
}

std::vector<Argument> DeclareCreate(CreateOptions& options) {
    return {{.name = "SSD",
             .help = "device path of the SSD; what it holds is lost",
             .target = &options.ssd,
             .required = true,
             .completion = Completion::kDevice},
            {.name = "VOLUME",
             .help = "device path of the volume; what it holds stays",
             .target = &options.volume,
             .required = true,
             .completion = Completion::kDevice},
            {.name = "--size",
             .help = "size of the cache, such as 120G; default: all of the SSD",
             .target = &options.size},
            {.name = "--mode",
             .help = "how writes are treated",
             .target = &options.mode,
             .showsDefault = true,
             .choices = NamesOf(kModes)},
            {.name = "--reclaim",
             .help = "which block a full cache gives up first",
             .target = &options.reclaimPolicy,
             .showsDefault = true,
             .choices = NamesOf(kReclaimPolicies)},
            {.name = "--format",
             .help = "of the metadata: new has blocks of 64 KiB, original of 4 KiB",
             .target = &options.format,
             .showsDefault = true,
             .choices = NamesOf(kFormats)},
            {.name = "--fallow-delay",
             .help = "seconds before an idle dirty block is cleaned",
             .target = &options.tuning.DelaySeconds,
             .range = {1, kLongestFallowDelay},
             .valueName = "SECONDS"},
            {.name = "--dirty-threshold",
             .help = "percent of a set that may be dirty",
             .target = &options.tuning.DirtyThreshPercent,
             .range = {1, 100},
             .valueName = "PERCENT"},
            {.name = "--skip-sequential",
             .help = "let long sequential I/O bypass the cache",
             .target = &options.skipSequential},
            EntryNameArgument(options.name),
            MountPathArgument(options.mountPath),
            {.name = "--device",
             .help = "the cache device; default: the first free /dev/mapper/cachedev_N",
             .target = &options.device,
             .check = CheckDeviceName,
             .valueName = "DEVICE"},
            {.name = "--discard-content",
             .help = "consent to the loss of what the SSD holds; asked for on a terminal when left out",
             .target = &options.discardContent}};
}

}  // namespace

Verb CreateVerb() {
    return MakeVerb<CreateOptions>("create", "Make a cache on an SSD in front of a volume, and configure it",
                                   "vemocachectl create /dev/md3 /dev/vg1/volume_1 --size 120G --mode back",
                                   DeclareCreate, Create);
}

}  // namespace cli
