#include "support/disk_model.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <filesystem>
#include <fstream>

namespace cli {
namespace {

namespace fs = std::filesystem;

constexpr int kDeepest = 8;  // devices on devices; more is a circle

std::string LineOf(const fs::path& file) {
    std::string line;
    std::getline(std::ifstream(file), line);
    line.erase(line.find_last_not_of(" \t") + 1);
    line.erase(0, line.find_first_not_of(" \t"));
    return line;
}

void AddDisks(const fs::path& device, int depth, std::vector<Disk>& disks) {
    std::error_code error;
    bool hasParts = false;
    for (fs::directory_iterator part(device / "slaves", error), end; !error && part != end && depth > 0;
         part.increment(error)) {
        hasParts = true;
        AddDisks(fs::canonical(part->path(), error), depth - 1, disks);
    }
    if (hasParts) {
        return;
    }
    const fs::path disk = fs::exists(device / "partition", error) ? device.parent_path() : device;
    constexpr std::uint64_t kSector = 512;
    const std::string sectors = LineOf(disk / "size");
    const std::string model = LineOf(disk / "device" / "model");
    if (!model.empty()) {
        disks.push_back({model, std::strtoull(sectors.c_str(), nullptr, 10) * kSector});
    }
}

}  // namespace

std::vector<Disk> DisksBeneath(const std::string& device) {
    std::vector<Disk> disks;
    struct stat status{};
    std::error_code error;
    if (stat(device.c_str(), &status) == 0 && S_ISBLK(status.st_mode)) {
        const fs::path link =
            fmt::format("/sys/dev/block/{}:{}", major(status.st_rdev), minor(status.st_rdev));
        const fs::path folder = fs::canonical(link, error);
        if (!error) {
            AddDisks(folder, kDeepest, disks);
        }
    }
    return disks;
}

}  // namespace cli
