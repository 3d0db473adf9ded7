// Disks for the simulated cache, and what is written to them: a sector holds one stamp all over.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <span>
#include <string>

#include "base/unique_fd.h"
#include "simulation/kernel/disk.h"

namespace simulation {

inline constexpr uint64_t kSector = 512;

inline base::UniqueFd MakeFile(uint64_t bytes) {
    base::UniqueFd file(open("/tmp", O_RDWR | O_TMPFILE | O_CLOEXEC, 0600));
    EXPECT_EQ(ftruncate(file.Get(), static_cast<off_t>(bytes)), 0);
    return file;
}

inline Disk MakeDisk(const std::string& path, uint64_t bytes) {
    return {path, MakeFile(bytes), base::UniqueFd()};
}

inline base::UniqueFd Copy(const base::UniqueFd& file) {
    return base::UniqueFd(fcntl(file.Get(), F_DUPFD_CLOEXEC, 0));
}

struct PowerCut {};

// A disk with a volatile cache, and what cuts its power.
class VolatileDisk {
  public:
    VolatileDisk(std::string path, uint64_t bytes) : path_(std::move(path)), file_(MakeFile(bytes)) {}

    void PowerUp(uint64_t seed, std::function<void(const DiskRequest&)> beforeUse) {
        Unflushed::TakeBack(unflushed_.Get(), file_.Get());
        disk_ = Disk(path_, Copy(file_), base::UniqueFd(), Unflushed(Copy(unflushed_), seed));
        disk_.BeforeEachUse(std::move(beforeUse));
    }
    Disk& operator*() { return disk_; }
    Disk* operator->() { return &disk_; }

  private:
    std::string path_;
    base::UniqueFd file_;
    base::UniqueFd unflushed_ = MakeFile(0);
    Disk disk_{path_, Copy(file_), base::UniqueFd()};
};

using Sector = std::array<uint32_t, kSector / sizeof(uint32_t)>;

inline Sector Stamp(uint32_t stamp) {
    Sector sector{};
    sector.fill(stamp);
    return sector;
}

inline std::span<char> Bytes(std::span<Sector> sectors) {
    return {reinterpret_cast<char*>(sectors.data()), sectors.size_bytes()};
}

}  // namespace simulation
