#include "simulation/kernel/disk.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <algorithm>

#include "simulation/common/checked.h"

namespace simulation {

uint64_t Disk::Size() const {
    struct stat status{};
    Checked(fstat(file_.Get(), &status), path_);
    return static_cast<uint64_t>(status.st_size);
}

void Disk::Read(uint64_t offset, std::span<char> into) const {
    while (!into.empty()) {
        const ssize_t count =
            Checked(pread(file_.Get(), into.data(), into.size(), static_cast<off_t>(offset)), path_);
        if (count == 0) {
            std::fill(into.begin(), into.end(), '\0');
            return;
        }
        into = into.subspan(static_cast<size_t>(count));
        offset += static_cast<uint64_t>(count);
    }
}

void Disk::Write(uint64_t offset, std::span<const char> from) {
    const uint64_t size = Size();
    from = from.first(std::min<uint64_t>(from.size(), size - std::min(size, offset)));
    beforeUse_();
    KeepUnflushed(offset, from.size());
    while (!from.empty()) {
        const ssize_t count =
            Checked(pwrite(file_.Get(), from.data(), from.size(), static_cast<off_t>(offset)), path_);
        from = from.subspan(static_cast<size_t>(count));
        offset += static_cast<uint64_t>(count);
    }
}

// Only what holds data changes: most of a disk never does.
void Disk::Punch(uint64_t offset, uint64_t length) {
    beforeUse_();
    const auto end = static_cast<off_t>(offset + length);
    off_t data = static_cast<off_t>(offset);
    while (unflushed_ && (data = lseek(file_.Get(), data, SEEK_DATA)) >= 0 && data < end) {
        const off_t hole = std::min(Checked(lseek(file_.Get(), data, SEEK_HOLE), path_), end);
        KeepUnflushed(static_cast<uint64_t>(data), static_cast<uint64_t>(hole - data));
        data = hole;
    }
    Checked(fallocate(file_.Get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(offset),
                      static_cast<off_t>(length)),
            path_);
}

void Disk::KeepUnflushed(uint64_t offset, uint64_t length) {
    if (unflushed_) {
        unflushed_->Keep(file_.Get(), offset, length);
    }
}

void Disk::Flush() {
    beforeUse_();
    if (unflushed_) {
        unflushed_->Forget();
    }
}

void Disk::DropCache() const {
    ioctl(node_.Get(), BLKFLSBUF, 0);
}

}  // namespace simulation
