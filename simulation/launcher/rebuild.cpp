#include "simulation/launcher/rebuild.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>

#include "simulation/common/checked.h"
#include "simulation/launcher/mounts.h"

namespace simulation {

namespace {

namespace fs = std::filesystem;

std::string PathOf(const ReportedDisk& disk) {
    return "/dev/" + disk.name;
}

class Rebuilder {
  public:
    explicit Rebuilder(Devices& devices) : devices_(devices) {}

    void Place(const ReportedCache& cache) {
        const bool isPlaced = cache.blocks == 0 || !placed_.insert(cache.ssd).second;
        if (!isPlaced) {
            Request({"place", cache.ssd, cache.volume, cache.mode, std::to_string(cache.version),
                     std::to_string(cache.blocks), cache.isInOrder || !cache.device.empty() ? "1" : "0",
                     std::to_string(cache.cached), std::to_string(cache.dirty)});
        }
    }

    void BringUp(const ReportedCache& cache) {
        if (cache.device.empty()) {
            return;
        }
        Request({"load", cache.device, cache.ssd, cache.volume});
        for (const auto& [what, value] : cache.seeds) {
            Request({"seed", cache.device, what, value});
        }
        if (cache.isWiped) {
            Request({"blank", cache.ssd});
        }
    }

    void ChangeDisk(const ReportedDisk& disk) {
        if (disk.grownTo > disk.bytes) {
            Request({"grow", PathOf(disk), std::to_string(disk.grownTo)});
        }
        if (disk.isGone) {
            Checked(unlink(PathOf(disk).c_str()), PathOf(disk));
        }
    }

    void Request(const Words& request) {
        const Answer answer = devices_.Handle(request);
        if (answer.error != 0) {
            throw std::runtime_error("the report cannot be rebuilt: " + request[0] + " " + request[1] + ": " +
                                     answer.text);
        }
    }

  private:
    Devices& devices_;
    std::set<std::string> placed_;  // SSDs: two entries may name one
};

void PutFile(const ReportedFile& file) {
    fs::create_directories(fs::path(file.path).parent_path());
    std::ofstream stream(file.path, std::ios::binary | std::ios::trunc);
    stream << file.text;
    if (!stream.flush()) {
        throw std::runtime_error("the report cannot be rebuilt: " + file.path + " cannot be written");
    }
    Checked(chown(file.path.c_str(), file.user, static_cast<gid_t>(-1)), file.path);
}

}  // namespace

void Rebuild(const ReportedState& state, Devices& devices) {
    Rebuilder rebuilder(devices);
    for (const std::string& module : state.modules) {
        rebuilder.Request({"insmod", module});
    }
    // Before anything is dirty: what was, stays so.
    const bool isDirty =
        std::any_of(state.caches.begin(), state.caches.end(),
                    [](const ReportedCache& cache) { return !cache.device.empty() && cache.dirty > 0; });
    if (isDirty) {
        rebuilder.Request({"fault", "cleaning", "pause"});
    }
    for (const ReportedCache& cache : state.caches) {
        rebuilder.Place(cache);
    }
    for (const ReportedCache& cache : state.caches) {
        rebuilder.BringUp(cache);
    }
    for (const ReportedDisk& disk : state.disks) {
        rebuilder.ChangeDisk(disk);
    }
    for (const ReportedFile& file : state.files) {
        PutFile(file);
    }
    for (const std::string& folder : state.mounts) {
        fs::create_directories(folder);
        MountTmpfs(folder, "755");
    }
    if (!state.memory.empty()) {
        rebuilder.Request({"proc", "meminfo", state.memory});
    }
}

}  // namespace simulation
