// The requests that bring an appliance into a state that another one told of.
#include <algorithm>
#include <cstring>

#include "simulation/common/count.h"
#include "simulation/kernel/kernel.h"

namespace simulation {

namespace {

// The first slots hold the first blocks, of which the first ones are dirty.
void WriteMap(Disk& ssd, const Superblock& superblock, uint64_t cached, uint64_t dirty) {
    ssd.Punch(kMapOffset, superblock.DataOffset() - kMapOffset);
    for (uint64_t slot = 0; slot < cached;) {
        constexpr uint64_t kAtOnce = 1 << 16;
        std::vector<base::MapEntry> entries(std::min(kAtOnce, cached - slot));
        const uint64_t offset = kMapOffset + slot * sizeof(base::MapEntry);
        for (base::MapEntry& entry : entries) {
            entry = slot << base::kSlotFlagBits | (slot < dirty ? base::kSlotDirty : 0) | base::kSlotUsed;
            ++slot;
        }
        ssd.Write(offset, std::span(reinterpret_cast<const char*>(entries.data()),
                                    entries.size() * sizeof(base::MapEntry)));
    }
}

}  // namespace

// The volume need not be there.
Answer Kernel::PlaceCache(const Words& arguments) {
    Disk* ssd = FindDisk(arguments[0]);
    const auto mode = ParseMode(arguments[2]);
    const auto version = ParseCount(arguments[3]);
    const auto slots = ParseCount(arguments[4]);
    const auto cached = ParseCount(arguments[6]);
    const auto dirty = ParseCount(arguments[7]);
    if (ssd == nullptr || InUse(*ssd)) {
        return {ENODEV, "no such disk, or it belongs to a live cache: " + arguments[0]};
    }
    const bool isKnown = mode && (version == kVersionOriginal || version == kVersionNew);
    if (!isKnown || !slots || *slots == 0 || !cached || !dirty || *cached > *slots || *dirty > *cached) {
        return {EINVAL, "bad mode, version or numbers of blocks"};
    }
    Superblock superblock;
    std::memcpy(superblock.magic, base::kCacheMagic, sizeof base::kCacheMagic);
    superblock.version = static_cast<uint32_t>(*version);
    superblock.blockSize = version == kVersionNew ? 65536 : 4096;
    superblock.mode = *mode;
    superblock.clean = arguments[5] == "1" ? 1 : 0;
    superblock.slots = *slots;
    ssd->Path().copy(superblock.ssd, sizeof superblock.ssd - 1);
    arguments[1].copy(superblock.space, sizeof superblock.space - 1);
    if (*slots > ssd->Size() / superblock.blockSize ||
        superblock.DataOffset() + *slots * superblock.blockSize > ssd->Size()) {
        return {ENOSPC, arguments[0] + " has no room for that cache"};
    }
    WriteMap(*ssd, superblock, *cached, *dirty);
    WriteSuperblock(*ssd, superblock);
    return {};
}

// Whether or not a cache that lives lies there.
Answer Kernel::BlankSsd(const Words& arguments) {
    Disk* ssd = FindDisk(arguments[0]);
    if (ssd == nullptr) {
        return {ENODEV, "no such disk: " + arguments[0]};
    }
    WipeSuperblock(*ssd);
    return {};
}

// A knob ("knob.do_sync"), or what a file under /proc/flashcache says: where the text is none that the kernel
// itself could say, the file says it from now on.
Answer Kernel::SeedCache(const Words& arguments) {
    Cache* cache = FindCache(arguments[0]);
    const std::string& what = arguments[1];
    const std::string& value = arguments[2];
    if (cache == nullptr) {
        return {ENXIO, "no such cache device: " + arguments[0]};
    }
    constexpr std::string_view kKnobPrefix = "knob.";
    if (what.starts_with(kKnobPrefix)) {
        const auto knob = std::find_if(kKnobs.begin(), kKnobs.end(), [&](const KnobInfo& known) {
            return known.name == std::string_view(what).substr(kKnobPrefix.size());
        });
        const bool isSet =
            knob != kKnobs.end() && cache->SeedKnob(static_cast<Knob>(knob - kKnobs.begin()), value);
        return isSet ? Answer{} : Answer{EINVAL, "no knob, or no value of it: " + what + " " + value};
    }
    const bool isTold = what == "flashcache_stats"      ? cache->SeedStats(value)
                        : what == "flashcache_errors"   ? cache->SeedErrors(value)
                        : what == "flashcache_progress" ? cache->SeedProgress(value)
                                                        : cache->SetAttribute(value) == 0;
    if (!isTold) {
        heldTexts_["proc/flashcache/" + cache->Ssd().ShortName() + "+" + cache->Space().ShortName() + "/" +
                   what] = value;
    }
    return {};
}

// Shows a text as a file of /proc.
Answer Kernel::ShowInProc(const Words& arguments) {
    tree_.AddText("proc/" + arguments[0], [text = arguments[1]] { return text; });
    return {};
}

}  // namespace simulation
