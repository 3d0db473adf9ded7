// The simulated cache device against the bare loop device under it, past the page cache.

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <random>
#include <vector>

#include "appliance.h"
#include "base/unique_fd.h"
#include "benches.h"
#include "comparison.h"

namespace bench {
namespace {

constexpr std::size_t kMiB = std::size_t{1} << 20U;
constexpr std::size_t kArea = 32 * kMiB;  // less than may be dirty before the cache cleans
constexpr std::size_t kSmall = 4096;
constexpr int kSmallRequests = 2000;
constexpr std::size_t kAlignment = 4096;

struct Format {
    const char* name;
    bool isNew;
    const char* ssd;
    const char* space;
    const char* cache;
};

// The pairs that RunOnAppliance adds for this.
constexpr Format kNew{"64K", true, "md90", "vg2/volume_1", "cachedev_90"};
constexpr Format kOriginal{"4K", false, "md91", "vg2/volume_2", "cachedev_91"};
constexpr const char* kBare = "/dev/vg2/volume_3";

using Use = void (*)(int device, char* memory, std::size_t length, off_t offset);

void WriteTo(int device, char* memory, std::size_t length, off_t offset) {
    Require(pwrite(device, memory, length, offset) == static_cast<ssize_t>(length), "a write failed");
}

void ReadFrom(int device, char* memory, std::size_t length, off_t offset) {
    Require(pread(device, memory, length, offset) == static_cast<ssize_t>(length), "a read failed");
}

struct Free {
    void operator()(char* memory) const { std::free(memory); }
};

std::unique_ptr<char, Free> AlignedMemory() {
    return std::unique_ptr<char, Free>(static_cast<char*>(std::aligned_alloc(kAlignment, kMiB)));
}

base::UniqueFd Open(const std::string& path) {
    base::UniqueFd device(open(path.c_str(), O_RDWR | O_DIRECT | O_CLOEXEC));
    Require(static_cast<bool>(device), "cannot open " + path);
    return device;
}

void UseAll(const std::string& path, Use use) {
    const base::UniqueFd device = Open(path);
    const auto memory = AlignedMemory();
    for (std::size_t offset = 0; offset < kArea; offset += kMiB) {
        use(device.Get(), memory.get(), kMiB, static_cast<off_t>(offset));
    }
}

void UseAtRandom(const std::string& path, Use use) {
    const base::UniqueFd device = Open(path);
    const auto memory = AlignedMemory();
    std::mt19937 random(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same blocks in every run
    for (int i = 0; i < kSmallRequests; ++i) {
        const std::size_t offset = random() % (kArea / kSmall) * kSmall;
        use(device.Get(), memory.get(), kSmall, static_cast<off_t>(offset));
    }
}

// Makes the cache device, with all of the area in the cache, and fills the area of the bare one.
void HaveDevice(const Format& format) {
    const std::string path = std::string("/dev/mapper/") + format.cache;
    if (access(path.c_str(), F_OK) == 0) {
        return;
    }
    HaveCaches(1);  // which loads the modules
    const std::string ssd = std::string("/dev/") + format.ssd;
    const std::string space = std::string("/dev/") + format.space;
    RunProgram("/usr/bin/vemo-appliance", {"grow", ssd.c_str(), "256M"});
    const std::string create = std::string("exec flashcache_create ") + (format.isNew ? "-n " : "") +
                               "-s 224m -p back " + format.cache + " " + ssd + " " + space;
    RunProgram("/bin/sh", {"-c", create.c_str()});
    UseAll(path, WriteTo);
    UseAll(kBare, WriteTo);
}

using Pattern = void (*)(const std::string& path, Use use);

void RegisterOne(const Format& format, const char* what, Pattern pattern, Use use, double goal) {
    Comparison comparison;
    comparison.name = std::string("device/") + format.name + "/" + what;
    comparison.ours = [format, pattern, use] {
        HaveDevice(format);
        const std::string path = std::string("/dev/mapper/") + format.cache;
        return CostOf([&] { pattern(path, use); });
    };
    comparison.pairs = 15;
    comparison.baselineName = "the bare loop device";
    comparison.baseline = [format, pattern, use] {
        HaveDevice(format);
        return CostOf([&] { pattern(kBare, use); });
    };
    comparison.lines = {{kWall, goal}};
    Register(comparison);
}

}  // namespace

void RegisterDevice() {
    RegisterOne(kNew, "write", UseAll, WriteTo, 2);
    RegisterOne(kNew, "read", UseAll, ReadFrom, 2);
    RegisterOne(kNew, "write4k", UseAtRandom, WriteTo, 1.4);
    RegisterOne(kNew, "read4k", UseAtRandom, ReadFrom, 1.2);
    RegisterOne(kOriginal, "write", UseAll, WriteTo, 4);
    RegisterOne(kOriginal, "read", UseAll, ReadFrom, 4);
    RegisterOne(kOriginal, "write4k", UseAtRandom, WriteTo, 1.4);
    RegisterOne(kOriginal, "read4k", UseAtRandom, ReadFrom, 1.2);
}

}  // namespace bench
