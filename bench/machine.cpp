#include "machine.h"
#include "base/unique_fd.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <vector>

#include "appliance.h"
#include "measure.h"

namespace bench {
namespace {

constexpr int kRounds = 21;

// The median time of one of `count` things that `work` does.
template <class Work>
double TimeOf(int count, const Work& work) {
    std::vector<double> times(kRounds);
    for (double& time : times) {
        time = CostOf(work).wall / count;
    }
    return Median(times);
}

double TimeOfPageFault() {
    constexpr std::size_t kPages = 256;
    const auto pageSize = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t size = kPages * pageSize;
    void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    Require(memory != MAP_FAILED, "no memory");
    madvise(memory, size, MADV_NOHUGEPAGE);
    std::vector<double> times(kRounds);
    for (double& time : times) {
        const Cost cost = CostOf([&] {
            for (std::size_t at = 0; at < size; at += pageSize) {
                static_cast<volatile char*>(memory)[at] = 1;
            }
        });
        time = cost.wall / kPages;
        madvise(memory, size, MADV_DONTNEED);  // the kernel takes the pages back
    }
    munmap(memory, size);
    return Median(times);
}

double TimeOfFileStatus() {
    constexpr int kCalls = 500;
    return TimeOf(kCalls, [] {
        struct stat status{};
        for (int i = 0; i < kCalls; ++i) {
            Require(stat("/etc/passwd", &status) == 0, "/etc/passwd");
        }
    });
}

double TimeOfFsync() {
    const std::string path = SpacePath(kMostCaches - 1);
    const base::UniqueFd volume(open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (!volume) {
        throw std::runtime_error("cannot open " + path);
    }
    char block[4096];
    Require(pread(volume.Get(), block, sizeof block, 0) == sizeof block, "cannot read " + path);
    return TimeOf(1, [&] {
        Require(pwrite(volume.Get(), block, sizeof block, 0) == sizeof block && fsync(volume.Get()) == 0,
                "cannot write " + path);
    });
}

}  // namespace

MachineCosts MeasureMachine() {
    return {TimeOfPageFault(), TimeOfFileStatus(), TimeOf(1, [] { RunProgram("/bin/true", {}); }),
            TimeOfFsync()};
}

}  // namespace bench
