// The requests that the simulated kernel takes, as its tools and the appliance's init send them.
#include <algorithm>
#include <optional>
#include <system_error>

#include "base/unique_fd.h"
#include "simulation/common/count.h"
#include "simulation/kernel/kernel.h"

namespace simulation {

// verb, fewest and most arguments
const Kernel::Request Kernel::kRequests[] = {
    {"insmod", 1, 1, &Kernel::InsertModule},     // NAME
    {"rmmod", 1, 1, &Kernel::RemoveModule},      // NAME
    {"create", 6, 6, &Kernel::CreateCache},      // NAME SSD SPACE MODE VERSION BYTES
    {"load", 3, 3, &Kernel::LoadCache},          // NAME SSD SPACE
    {"settle", 1, 1, &Kernel::SettleCache},      // NAME
    {"remove", 1, 1, &Kernel::RemoveCache},      // NAME
    {"expand", 5, 5, &Kernel::ExpandCache},      // NAME SSD SPACE MODE VERSION
    {"probe", 1, 1, &Kernel::ProbeSsd},          // SSD
    {"wipe", 1, 1, &Kernel::WipeSsd},            // SSD
    {"table", 1, 1, &Kernel::ShowTable},         // NAME
    {"list", 0, 0, &Kernel::ListCaches},         //
    {"take-fault", 1, 1, &Kernel::TakeFault},    // NAME
    {"fault", 2, 2, &Kernel::SetFault},          // NAME VALUE
    {"list-faults", 0, 0, &Kernel::ListFaults},  //
    {"clock", 1, 1, &Kernel::MoveClock},         // SECONDS
    {"shutdown", 0, 0, &Kernel::ShutDown},       //
    {"place", 8, 8, &Kernel::PlaceCache},        // SSD SPACE MODE VERSION SLOTS CLEAN CACHED DIRTY
    {"blank", 1, 1, &Kernel::BlankSsd},          // SSD
    {"seed", 3, 3, &Kernel::SeedCache},          // NAME WHAT VALUE
    {"proc", 2, 2, &Kernel::ShowInProc},         // NAME TEXT
};

std::optional<WriteMode> ParseMode(const std::string& text) {
    if (text == "thru") {
        return WriteMode::kThru;
    }
    if (text == "around") {
        return WriteMode::kAround;
    }
    const bool back = text == "back" || text == "back_bypass" || text == "back_crash";
    return back ? std::optional(WriteMode::kBack) : std::nullopt;
}

Kernel::Kernel(std::vector<Disk> disks, SystemLog log, base::UniqueFd realProc, uint64_t cleanRate,
               base::UniqueFd trace)
    : log_(std::move(log)),
      realProc_(std::move(realProc)),
      pace_(cleanRate),
      trace_(std::move(trace), pace_) {
    std::move(disks.begin(), disks.end(), std::back_inserter(disks_));
    for (Disk& disk : disks_) {
        disk.BeforeEachUse([this, &disk](const DiskRequest& request) { UseDisk(disk, request); });
    }
    tree_.AddFolder("data");
    tree_.AddFolder("module");
    AddProc();
    Node& messages = tree_.AddText(
        "messages", [this] { return log_.Read(); },
        [this](std::string_view text) {
            log_.Append(text);
            return 0;
        });
    messages.truncate = [this] { log_.Clear(); };
}

Answer Kernel::Handle(const Words& request) try {
    for (const Request& known : kRequests) {
        if (!request.empty() && request[0] == known.verb) {
            const Words arguments(request.begin() + 1, request.end());
            if (arguments.size() < known.fewest || arguments.size() > known.most) {
                return {EINVAL, "wrong number of arguments"};
            }
            return (this->*known.handler)(arguments);
        }
    }
    return {EINVAL, "unknown request"};
} catch (const std::system_error& error) {
    return {error.code().value(), error.what()};
}

int Kernel::Work() {
    int wait = -1;
    for (const auto& [name, cache] : caches_) {
        cache->Work();
        const int own = cache->WorkWaitMs();
        wait = wait < 0 ? own : own < 0 ? wait : std::min(wait, own);
    }
    return wait;
}

Answer Kernel::InsertModule(const Words& arguments) {
    if (std::find(std::begin(kModules), std::end(kModules), arguments[0]) == std::end(kModules)) {
        return {ENOEXEC, "Invalid module format"};
    }
    if (std::find(modules_.begin(), modules_.end(), arguments[0]) != modules_.end()) {
        return {EEXIST, "File exists"};
    }
    modules_.push_back(arguments[0]);
    AddModuleFiles(arguments[0]);
    return {};
}

Answer Kernel::RemoveModule(const Words& arguments) {
    const auto found = std::find(modules_.begin(), modules_.end(), arguments[0]);
    if (found == modules_.end()) {
        return {ENOENT, "Module " + arguments[0] + " is not currently loaded"};
    }
    if (!caches_.empty()) {
        return {EBUSY, "Module " + arguments[0] + " is in use"};
    }
    modules_.erase(found);
    tree_.Remove("module/" + arguments[0]);
    return {};
}

Answer Kernel::CheckNewCache(const std::string& name, const std::string& ssdPath,
                             const std::string& spacePath) {
    if (modules_.size() < std::size(kModules)) {
        return {ENODEV, "the flashcache modules are not loaded"};
    }
    if (name.empty() || name.size() > 63 || name.find('/') != std::string::npos) {
        return {EINVAL, "not a device name: " + name};
    }
    if (FindCache(name) != nullptr) {
        return {EEXIST, "device " + name + " exists already"};
    }
    for (const std::string& path : {ssdPath, spacePath}) {
        const Disk* disk = FindDisk(path);
        if (disk == nullptr) {
            return {ENODEV, "no such disk: " + path};
        }
        if (InUse(*disk)) {
            return {EBUSY, path + " belongs to a live cache"};
        }
    }
    return ssdPath == spacePath ? Answer{EINVAL, "SSD and volume are one disk"} : Answer{};
}

Answer Kernel::CreateCache(const Words& arguments) {
    const std::string& name = arguments[0];
    const auto mode = ParseMode(arguments[3]);
    const auto version = ParseCount(arguments[4]);
    const auto bytes = ParseCount(arguments[5]);
    if (!mode || !bytes || (version != kVersionOriginal && version != kVersionNew)) {
        return {EINVAL, "bad cache mode, version or size"};
    }
    if (Answer refused = CheckNewCache(name, arguments[1], arguments[2]); refused.error != 0) {
        return refused;
    }
    Disk& ssd = *FindDisk(arguments[1]);
    Disk& space = *FindDisk(arguments[2]);
    if (ReadSuperblock(ssd)) {
        return {EEXIST, "a cache lies on " + ssd.Path() + " already; load it, or destroy it first"};
    }
    space.DropCache();
    const Superblock superblock =
        MakeSuperblock(ssd, space, name, *mode, static_cast<uint32_t>(*version), *bytes);
    Add(name, Cache::Create(superblock, ssd, space, faults_, pace_));
    return {};
}

Answer Kernel::LoadCache(const Words& arguments) {
    if (Answer refused = CheckNewCache(arguments[0], arguments[1], arguments[2]); refused.error != 0) {
        return refused;
    }
    Disk& ssd = *FindDisk(arguments[1]);
    Disk& space = *FindDisk(arguments[2]);
    const auto superblock = ReadSuperblock(ssd);
    if (!superblock) {
        return {ENODATA, "no cache lies on " + ssd.Path()};
    }
    if (space.Path() != superblock->space) {
        return {EINVAL, "the cache on " + ssd.Path() + " belongs to " + superblock->space};
    }
    space.DropCache();
    Add(arguments[0], Cache::Load(*superblock, ssd, space, faults_, pace_));
    return {};
}

void Kernel::Add(const std::string& name, std::unique_ptr<Cache> cache) {
    AddCacheFiles(name, *cache);
    caches_[name] = std::move(cache);
}

Answer Kernel::SettleCache(const Words& arguments) {
    Cache* cache = FindCache(arguments[0]);
    if (cache == nullptr) {
        return {ENXIO, "No such device or address"};
    }
    cache->Settle();
    return {};
}

Answer Kernel::RemoveCache(const Words& arguments) {
    Cache* cache = FindCache(arguments[0]);
    if (cache == nullptr) {
        return {ENXIO, "No such device or address"};
    }
    cache->CleanForRemoval();
    TakeDown(arguments[0], *cache);
    RemoveCacheFiles(arguments[0], *cache);
    traced_.erase(arguments[0]);
    caches_.erase(arguments[0]);
    return {};
}

Answer Kernel::ExpandCache(const Words& arguments) {
    Cache* cache = FindCache(arguments[0]);
    if (cache == nullptr) {
        return {ENXIO, "no such cache device: " + arguments[0]};
    }
    const bool fits = cache->Ssd().Path() == arguments[1] && cache->Space().Path() == arguments[2] &&
                      ParseMode(arguments[3]) == cache->Format().mode &&
                      ParseCount(arguments[4]) == cache->Format().version;
    if (!fits) {
        return {EINVAL, "disks, mode or version are not those of " + arguments[0]};
    }
    cache->Expand();
    return {};
}

Answer Kernel::ProbeSsd(const Words& arguments) {
    const Disk* ssd = FindDisk(arguments[0]);
    if (ssd == nullptr) {
        return {ENODEV, "no such disk: " + arguments[0]};
    }
    return ReadSuperblock(*ssd) ? Answer{} : Answer{ENODATA, "no cache lies on " + arguments[0]};
}

Answer Kernel::WipeSsd(const Words& arguments) {
    if (Answer refused = ProbeSsd(arguments); refused.error != 0) {
        return refused;
    }
    Disk& ssd = *FindDisk(arguments[0]);
    if (InUse(ssd)) {
        return {EBUSY, arguments[0] + " belongs to a live cache"};
    }
    WipeSuperblock(ssd);
    return {};
}

Answer Kernel::ShowTable(const Words& arguments) {
    const Cache* cache = FindCache(arguments[0]);
    return cache != nullptr ? Answer{0, cache->Table()} : Answer{ENXIO, "No such device or address"};
}

Answer Kernel::ListCaches(const Words& /*arguments*/) {
    std::string names;
    for (const auto& [name, cache] : caches_) {
        names += name + "\n";
    }
    return {0, names};
}

Answer Kernel::MoveClock(const Words& arguments) {
    constexpr uint64_t kMost = uint64_t{366} * 24 * 3600;
    const auto seconds = ParseCount(arguments[0]);
    if (!seconds || *seconds > kMost) {
        return {EINVAL, "the clock moves forward by at most a year"};
    }
    pace_.MoveForward(std::chrono::seconds(*seconds));
    return {};
}

Answer Kernel::ShutDown(const Words& /*arguments*/) {
    for (const auto& [name, cache] : caches_) {
        TakeDown(name, *cache);
    }
    return {};
}

void Kernel::TakeDown(const std::string& name, Cache& cache) {
    try {
        cache.TakeDown();
    } catch (const std::system_error& error) {
        log_.AppendNow(3, "kernel: flashcache: " + name +
                              " is removed, but its SSD does not know all of it: " + error.what());
    }
}

Disk* Kernel::FindDisk(const std::string& path) {
    const auto found =
        std::find_if(disks_.begin(), disks_.end(), [&](const Disk& disk) { return disk.Path() == path; });
    return found == disks_.end() ? nullptr : &*found;
}

Cache* Kernel::FindCache(const std::string& name) {
    const auto found = caches_.find(name);
    return found == caches_.end() ? nullptr : found->second.get();
}

bool Kernel::InUse(const Disk& disk) const {
    return std::any_of(caches_.begin(), caches_.end(), [&](const auto& cache) {
        return &cache.second->Ssd() == &disk || &cache.second->Space() == &disk;
    });
}

}  // namespace simulation
