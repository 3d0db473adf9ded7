// File statistics of a volume, against the cheapest walks there are.

#include <fcntl.h>
#include <ftw.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include <fmt/format.h>

#include "appliance.h"
#include "benches.h"
#include "comparison.h"
#include "vemoflashcache.h"

namespace bench {
namespace {

constexpr const char* kDevice = "/dev/vg1/volume_1";
constexpr const char* kMountPoint = "/volume1";
constexpr int kFilesPerFolder = 200;
constexpr int kFilesPerShare = 20'000;

std::string VolumePath(int files) {
    return fmt::format("{}/{}", kMountPoint, files);
}

std::string SharePath(int files, int share) {
    return fmt::format("{}/share-{}", VolumePath(files), share);
}

void Mount() {
    Require(mount(kDevice, kMountPoint, "ext4", MS_RELATIME, nullptr) == 0, "cannot mount the volume");
}

void MakeFolder(const std::string& path) {
    Require(mkdir(path.c_str(), 0755) == 0, path);
}

// So many empty files, 200 a folder and 100 folders a share: their contents are nothing to a walk.
void MakeShares(int files) {
    MakeFolder(VolumePath(files));
    for (int file = 0; file < files; ++file) {
        const std::string share = SharePath(files, file / kFilesPerShare);
        const std::string folder = fmt::format("{}/folder-{}", share, file / kFilesPerFolder);
        if (file % kFilesPerShare == 0) {
            MakeFolder(share);
        }
        if (file % kFilesPerFolder == 0) {
            MakeFolder(folder);
        }
        const std::string path = fmt::format("{}/document-{}.txt", folder, file);
        Require(mknod(path.c_str(), S_IFREG | 0644, 0) == 0, path);
    }
}

constexpr int kFewFiles = 20'000;
constexpr int kMany = 200'000;

void MakeVolume() {
    static bool made = false;
    if (!made) {
        RunProgram("/sbin/mkfs.ext4", {"-q", "-N", "250000", kDevice});
        Mount();
        MakeShares(kFewFiles);
        MakeShares(kMany);
        made = true;
    }
}

// Leaves nothing of the volume in memory, neither with the file system nor with the device. The device's own
// storage is a file that the machine may hold in memory: as if on a very fast disk, to both sides.
void ForgetVolume() {
    Require(umount(kMountPoint) == 0, "cannot unmount the volume");
    const int device = open(kDevice, O_RDONLY | O_CLOEXEC);
    const bool flushed = ioctl(device, BLKFLSBUF, 0) == 0;
    close(device);
    Require(flushed, "cannot empty the volume's cache");
    Mount();
}

void WalkOurs() {
    Require(FlashcacheDoStatistics("bench", VolumePath(kMany).c_str()) == 0, "the statistics failed");
}

void WalkFind() {  // the shell is for the list of shares, and for where the output goes
    RunProgram("/bin/sh", {"-c", "exec find \"$0\"/* -xdev -printf '%A@ %C@ %T@ %b\\n' >/dev/null",
                           VolumePath(kMany).c_str()});
}

int visited = 0;

void WalkNftw() {
    visited = 0;
    const auto visit = [](const char*, const struct stat*, int, FTW*) { return ++visited, 0; };
    for (int share = 0; share < kMany / kFilesPerShare; ++share) {
        const std::string root = SharePath(kMany, share);
        Require(nftw(root.c_str(), visit, 512, FTW_PHYS | FTW_MOUNT | FTW_ACTIONRETVAL) == 0, "nftw failed");
    }
    Require(visited > kMany, "nftw did not visit all");
}

Run Warm(void (*walk)()) {
    return [walk] {
        MakeVolume();
        return CostOf(walk);
    };
}

Run Cold(void (*walk)()) {
    return [walk] {
        MakeVolume();
        ForgetVolume();
        return CostOf(walk);
    };
}

// In a process of its own that does nothing else, with its memory laid out the same way each time.
Run PeakMemory(int files) {
    return [files] {
        MakeVolume();
        const std::unique_ptr<FILE, int (*)(FILE*)> output(
            popen(
                fmt::format("setarch -R /proc/{}/exe --peak-of-walk {}", getpid(), VolumePath(files)).c_str(),
                "r"),
            pclose);
        Cost cost;
        Require(output && std::fscanf(output.get(), "%lf", &cost.peakMemory) == 1, "the walk failed");
        return cost;
    };
}

}  // namespace

int PrintPeakOfWalk(const char* volumePath) {
    if (FlashcacheDoStatistics("bench", volumePath) != 0) {
        return 1;
    }
    std::printf("%.0f\n", OwnPeakMemory());
    return 0;
}

void RegisterWalk() {
    const Comparison comparisons[] = {
        {"walk/warm", Warm(WalkOurs), "find -xdev -printf", Warm(WalkFind), 7, {{kWall, 0.90}, {kCpu, 0.75}}},
        {"walk/cold", Cold(WalkOurs), "find -xdev -printf", Cold(WalkFind), 3, {{kWall, 0.90}, {kCpu, 0.75}}},
        {"walk/nftw",
         Warm(WalkOurs),
         "nftw that does nothing",
         Warm(WalkNftw),
         7,
         {{kWall, 1.05}, {kCpu, 1.05}}},
        {"walk/memory",
         PeakMemory(kMany),
         fmt::format("the same with {} files", kFewFiles),
         PeakMemory(kFewFiles),
         1,
         {{kMemory, 1.0}}}};
    for (const Comparison& comparison : comparisons) {
        Register(comparison);
    }
}

}  // namespace bench
