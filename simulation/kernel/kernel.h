#pragma once

#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "base/unique_fd.h"
#include "simulation/common/message.h"
#include "simulation/kernel/cache.h"
#include "simulation/kernel/clean_pace.h"
#include "simulation/kernel/disk.h"
#include "simulation/kernel/faults.h"
#include "simulation/kernel/request_trace.h"
#include "simulation/kernel/system_log.h"
#include "simulation/kernel/tree.h"

namespace simulation {

// The simulated kernel: its disks, modules and caches, the files that show them, and the requests that it
// takes.
//
//  Its files: "data/NAME" carries a cache device's blocks; "proc" is the appliance's /proc, in which all but
// a few names are links to the real one under "proc/.kernel"; "module" is its /sys/module; "messages" its
// system log.
class Kernel {
  public:
    // `realProc` is a folder descriptor of the real /proc of the appliance's processes.
    // What is asked of the cache devices is recorded in `trace`, if that is a file.
    Kernel(std::vector<Disk> disks, SystemLog log, base::UniqueFd realProc, uint64_t cleanRate,
           base::UniqueFd trace = {});

    Tree& Files() { return tree_; }
    SystemLog& Log() { return log_; }

    // Carries out a request. See the table in kernel_requests.cpp.
    Answer Handle(const Words& request);
    // Whether what was asked for was to cut the power: nothing may be done after the answer.
    bool PowerIsCut() const { return powerIsCut_; }
    // Does what is due, and tells how long until there is more (milliseconds, -1: nothing before a request).
    int Work();

  private:
    using Handler = Answer (Kernel::*)(const Words& arguments);
    struct Request {
        const char* verb;
        size_t fewest;
        size_t most;
        Handler handler;
    };
    static const Request kRequests[];

    Answer InsertModule(const Words& arguments);
    Answer RemoveModule(const Words& arguments);
    Answer CreateCache(const Words& arguments);
    Answer LoadCache(const Words& arguments);
    Answer SettleCache(const Words& arguments);
    Answer RemoveCache(const Words& arguments);
    Answer ExpandCache(const Words& arguments);
    Answer ProbeSsd(const Words& arguments);
    Answer WipeSsd(const Words& arguments);
    Answer ShowTable(const Words& arguments);
    Answer ListCaches(const Words& arguments);
    Answer TakeFault(const Words& arguments);
    Answer SetFault(const Words& arguments);
    Answer ListFaults(const Words& arguments);
    Answer MoveClock(const Words& arguments);
    Answer ShutDown(const Words& arguments);
    Answer PlaceCache(const Words& arguments);
    Answer BlankSsd(const Words& arguments);
    Answer SeedCache(const Words& arguments);
    Answer ShowInProc(const Words& arguments);

    Answer SetCleaning(const std::string& value);
    Answer SetPower(const std::string& value);
    void UseDisk(const Disk& disk, const DiskRequest& request);
    // Ends the process when the power is to be cut now.
    void UsePower();
    Answer SetReportedErrors(const std::string& value);
    Answer CheckNewCache(const std::string& name, const std::string& ssd, const std::string& space);
    // Where that fails the system log tells.
    void TakeDown(const std::string& name, Cache& cache);
    void Add(const std::string& name, std::unique_ptr<Cache> cache);
    Disk* FindDisk(const std::string& path);
    Cache* FindCache(const std::string& name);
    bool InUse(const Disk& disk) const;

    void AddProc();
    void AddCacheFiles(const std::string& name, Cache& cache);
    void RemoveCacheFiles(const std::string& name, const Cache& cache);
    void AddInfoFile(const std::string& folder, const std::string& name, std::function<std::string()> read,
                     std::function<int(std::string_view)> write = nullptr);
    void AddKnobFile(const std::string& folder, Knob knob, Cache& cache);
    void AddModuleFiles(const std::string& name);
    std::string ModuleList() const;

    std::list<Disk> disks_;
    SystemLog log_;
    base::UniqueFd realProc_;
    CleanPace pace_;
    RequestTrace trace_;
    Faults faults_;
    bool powerIsCut_ = false;
    std::map<std::string, std::string> forcedTexts_;  // what an info file says instead, by its name
    std::map<std::string, std::string> heldTexts_;    // the same of one cache alone, by its path
    Tree tree_;
    std::vector<std::string> modules_;  // the youngest last
    std::map<std::string, std::unique_ptr<Cache>> caches_;
    std::map<std::string, std::unique_ptr<BlockTarget>>
        traced_;  // what stands before them, by the same names
};

// The exit code of a kernel whose power was cut.
inline constexpr int kPowerCutCode = 3;

// The modules that there are, all of which a cache needs.
inline constexpr const char* kModules[] = {"vemo_flashcache_control", "flashcache", "flashcache_vemo"};

}  // namespace simulation
