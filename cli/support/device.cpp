#include "support/device.h"

#include <blkid/blkid.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <linux/fs.h>
#include <mntent.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>

#include "base/unique_fd.h"
#include "support/failure.h"
#include "support/samples.h"

namespace cli {
namespace {

namespace fs = std::filesystem;

base::UniqueFd Open(const std::string& path, int flags) {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): open has no other form.
    return base::UniqueFd(open(path.c_str(), flags | O_CLOEXEC));
}

std::optional<dev_t> DeviceNumber(const std::string& path) {
    struct stat status{};
    if (stat(path.c_str(), &status) != 0 || !S_ISBLK(status.st_mode)) {
        return std::nullopt;
    }
    return status.st_rdev;
}

// Looks at both ends and at samples over all of the device: what is used at all shows in some of them. A
// part that cannot be read is not blank.
bool LooksBlank(int fd, std::uint64_t size) {
    constexpr std::uint64_t kSamples = 255;
    return VisitSamples(fd, size, kSamples, [](std::string_view bytes) {
        return std::all_of(bytes.begin(), bytes.end(), [](char byte) { return byte == 0; });
    });
}

bool HasOpen(const fs::path& process, const std::string& device) {
    std::error_code error;
    for (fs::directory_iterator fd(process / "fd", error), end; !error && fd != end; fd.increment(error)) {
        std::error_code unreadable;
        if (fs::read_symlink(fd->path(), unreadable) == device) {
            return true;
        }
    }
    return false;
}

}  // namespace

bool IsBlockDevice(const std::string& path) {
    return DeviceNumber(path).has_value();
}

std::string WhyNoDevice(const std::string& path) {
    std::error_code unreadable;
    const bool isThere = fs::exists(fs::symlink_status(path, unreadable));
    return isThere && !IsBlockDevice(path) ? path + " is no block device" : "";
}

bool SameDevice(const std::string& a, const std::string& b) {
    if (a == b) {
        return true;
    }
    const auto number = DeviceNumber(a);
    return number && number == DeviceNumber(b);
}

std::optional<std::uint64_t> DeviceSize(const std::string& path) {
    const auto device = Open(path, O_RDONLY);
    std::uint64_t size = 0;
    if (device.Get() < 0 || ioctl(device.Get(), BLKGETSIZE64, &size) != 0) {
        return std::nullopt;
    }
    return size;
}

std::vector<Mount> Mounts() {
    std::vector<Mount> mounts;
    const std::unique_ptr<FILE, int (*)(FILE*)> table(setmntent("/proc/mounts", "r"), endmntent);
    while (table) {
        const mntent* entry = getmntent(table.get());
        if (entry == nullptr) {
            break;
        }
        mounts.push_back({entry->mnt_fsname, entry->mnt_dir});
    }
    return mounts;
}

std::vector<std::string> MountPoints(const std::string& path) {
    std::vector<std::string> points;
    for (const auto& mount : Mounts()) {
        if (SameDevice(mount.device, path)) {
            points.push_back(mount.folder);
        }
    }
    return points;
}

std::vector<std::string> Holders(const std::string& path) {
    std::vector<std::string> holders;
    const std::string self = std::to_string(getpid());
    std::error_code error;
    for (fs::directory_iterator entry("/proc", error), end; !error && entry != end; entry.increment(error)) {
        const std::string pid = entry->path().filename();
        if (pid != self && pid.find_first_not_of("0123456789") == std::string::npos &&
            HasOpen(entry->path(), path)) {
            std::string name;
            std::getline(std::ifstream(entry->path() / "comm"), name);
            holders.push_back(fmt::format("{} ({})", name, pid));
        }
    }
    return holders;
}

bool IsHeld(const std::string& path) {
    const auto device = Open(path, O_RDONLY | O_EXCL);
    return device.Get() < 0 && errno == EBUSY;
}

std::string Content(const std::string& path) {
    constexpr const char* kUnreadable = "something that cannot be read";
    const auto device = Open(path, O_RDONLY);
    const std::unique_ptr<blkid_struct_probe, void (*)(blkid_probe)> probe(blkid_new_probe(),
                                                                           blkid_free_probe);
    const auto size = DeviceSize(path);
    if (device.Get() < 0 || !size || !probe || blkid_probe_set_device(probe.get(), device.Get(), 0, 0) != 0) {
        return kUnreadable;
    }
    constexpr int kAmbivalent = -2;
    blkid_probe_enable_partitions(probe.get(), 1);
    const int found = blkid_do_safeprobe(probe.get());
    if (found == kAmbivalent) {
        return "more than one known format";
    }
    const char* name = nullptr;
    if (found == 0 && blkid_probe_lookup_value(probe.get(), "TYPE", &name, nullptr) == 0) {
        return fmt::format("a known format ({})", name);
    }
    if (found == 0 && blkid_probe_lookup_value(probe.get(), "PTTYPE", &name, nullptr) == 0) {
        return fmt::format("a partition table ({})", name);
    }
    return LooksBlank(device.Get(), *size) ? "" : "data of an unknown format";
}

void RequireBlockDevice(const std::string& path, const std::string& role) {
    if (!path.starts_with("/dev/")) {
        throw Failure{fmt::format("{} is no device path", path),
                      fmt::format("the {} must be given as a path under /dev/", role), "", std::nullopt,
                      FailureKind::kRefused};
    }
    if (!IsBlockDevice(path)) {
        throw Failure{fmt::format("the {} {} is not there", role, path),
                      fs::exists(path) ? "it is not a block device" : "no such device exists", "lsblk",
                      std::nullopt, FailureKind::kNotFound};
    }
}

void RequireUnused(const std::string& path, const std::string& role) {
    const auto mounts = MountPoints(path);
    if (!mounts.empty()) {
        throw Failure{fmt::format("the {} {} is in use", role, path),
                      fmt::format("it is mounted on {}", fmt::join(mounts, ", ")),
                      fmt::format("umount {}", fmt::join(mounts, " ")), std::nullopt, FailureKind::kInUse};
    }
    if (IsHeld(path)) {
        throw Failure{fmt::format("the {} {} is in use", role, path),
                      "another device or program holds it exclusively", fmt::format("lsblk {}", path),
                      std::nullopt, FailureKind::kInUse};
    }
}

}  // namespace cli
