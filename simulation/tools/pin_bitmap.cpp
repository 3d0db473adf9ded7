#include "simulation/tools/pin_bitmap.h"

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/sysmacros.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "base/unique_fd.h"
#include "simulation/common/checked.h"

namespace simulation {

namespace {

namespace fs = std::filesystem;

constexpr uint64_t kBlockBytes = 65536;
using Bitmap = std::string;

void MarkExtent(Bitmap& bitmap, const fiemap_extent& extent) {
    constexpr uint32_t kNowhere = FIEMAP_EXTENT_UNKNOWN | FIEMAP_EXTENT_DATA_INLINE;
    const uint64_t end = extent.fe_physical + extent.fe_length;
    for (uint64_t block = extent.fe_physical / kBlockBytes; block * kBlockBytes < end; ++block) {
        if ((extent.fe_flags & kNowhere) == 0 && block / 8 < bitmap.size()) {
            bitmap[block / 8] = static_cast<char>(bitmap[block / 8] | 1 << block % 8);
        }
    }
}

// Marks where a file lies on its volume.
void MarkFile(Bitmap& bitmap, const std::string& path) {
    constexpr uint32_t kExtents = 64;
    const base::UniqueFd file(Checked(open(path.c_str(), O_RDONLY | O_CLOEXEC), path));
    alignas(fiemap) std::byte buffer[sizeof(fiemap) + kExtents * sizeof(fiemap_extent)]{};
    auto* const map = reinterpret_cast<fiemap*>(buffer);
    uint32_t flags = 0;
    do {
        map->fm_length = FIEMAP_MAX_OFFSET - map->fm_start;
        map->fm_flags = FIEMAP_FLAG_SYNC;
        map->fm_extent_count = kExtents;
        Checked(ioctl(file.Get(), FS_IOC_FIEMAP, map), path);
        for (uint32_t i = 0; i < map->fm_mapped_extents; ++i) {
            const fiemap_extent& extent = map->fm_extents[i];
            MarkExtent(bitmap, extent);
            map->fm_start = extent.fe_logical + extent.fe_length;
            flags = extent.fe_flags;
        }
    } while (map->fm_mapped_extents > 0 && (flags & FIEMAP_EXTENT_LAST) == 0);
}

}  // namespace

struct stat StatusOf(const std::string& path) {
    struct stat status{};
    Checked(stat(path.c_str(), &status), path);
    return status;
}

uint64_t VolumeBytes(const std::string& volume) {
    const dev_t device = StatusOf(volume).st_dev;
    const std::string number = std::to_string(major(device)) + ":" + std::to_string(minor(device));
    uint64_t sectors = 0;
    std::ifstream("/sys/dev/block/" + number + "/size") >> sectors;
    return StatusOf(volume + "/..").st_dev == device ? 0 : sectors * 512;
}

uint64_t BitmapBytes(const std::string& volume) {
    const uint64_t bytes = VolumeBytes(volume);
    if (bytes == 0) {
        throw std::runtime_error(volume + " is no volume that can pin files");
    }
    return (bytes + 8 * kBlockBytes - 1) / (8 * kBlockBytes);
}

std::string BitmapFile(const std::string& volume) {
    return volume + "/@flashcache_pin.bitmap";
}

void Store(const std::string& path, const std::string& content) {
    const std::string fresh = path + ".new";
    std::ofstream file(fresh, std::ios::binary);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    file << content;
    file.close();
    fs::rename(fresh, path);
}

void StoreBitmap(const std::string& volume, const std::set<std::string>& files) {
    Bitmap bitmap(BitmapBytes(volume), '\0');
    for (const std::string& file : files) {
        if (fs::exists(file)) {
            MarkFile(bitmap, file);
        }
    }
    Store(BitmapFile(volume), bitmap);
}

}  // namespace simulation
