#include "simulation/kernel/disk.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <numeric>

#include "simulation/common/checked.h"

namespace simulation {

namespace {

uint64_t BytesOf(const Memory& memory) {
    return std::accumulate(memory.begin(), memory.end(), uint64_t{0},
                           [](uint64_t sum, const iovec& piece) { return sum + piece.iov_len; });
}

void DropFront(Memory& memory, size_t count) {
    auto piece = memory.begin();
    for (; piece != memory.end() && count >= piece->iov_len; ++piece) {
        count -= piece->iov_len;
    }
    if (piece != memory.end()) {
        piece->iov_base = static_cast<char*>(piece->iov_base) + count;
        piece->iov_len -= count;
    }
    memory.erase(memory.begin(), piece);
}

// Leaves the first `count` bytes.
void DropBack(Memory& memory, size_t count) {
    auto piece = memory.begin();
    for (; piece != memory.end() && count > 0; ++piece) {
        piece->iov_len = std::min(piece->iov_len, count);
        count -= piece->iov_len;
    }
    memory.erase(piece, memory.end());
}

}  // namespace

uint64_t Disk::Size() const {
    struct stat status{};
    Checked(fstat(file_.Get(), &status), path_);
    return static_cast<uint64_t>(status.st_size);
}

void Disk::Read(uint64_t offset, std::span<char> into) const {
    Read(offset, Memory{{into.data(), into.size()}});
}

void Disk::Read(uint64_t offset, Memory into) const {
    beforeUse_({DiskUse::kRead, offset, BytesOf(into)});
    while (!into.empty()) {
        const ssize_t count = Checked(
            preadv(file_.Get(), into.data(), static_cast<int>(into.size()), static_cast<off_t>(offset)),
            path_);
        if (count == 0) {
            for (const iovec& piece : into) {
                std::memset(piece.iov_base, 0, piece.iov_len);
            }
            return;
        }
        DropFront(into, static_cast<size_t>(count));
        offset += static_cast<uint64_t>(count);
    }
}

void Disk::Write(uint64_t offset, std::span<const char> from) {
    Write(offset, Memory{{const_cast<char*>(from.data()), from.size()}});  // writev takes no const memory
}

void Disk::Write(uint64_t offset, Memory from) {
    uint64_t length = BytesOf(from);
    if (offset + length > least_) {
        least_ = Size();
        length = std::min(length, least_ - std::min(least_, offset));
        DropBack(from, length);
    }
    beforeUse_({DiskUse::kWrite, offset, length});
    KeepUnflushed(offset, length);
    while (!from.empty()) {
        const ssize_t count = Checked(
            pwritev(file_.Get(), from.data(), static_cast<int>(from.size()), static_cast<off_t>(offset)),
            path_);
        DropFront(from, static_cast<size_t>(count));
        offset += static_cast<uint64_t>(count);
    }
}

// Only what holds data changes: most of a disk never does.
void Disk::Punch(uint64_t offset, uint64_t length) {
    beforeUse_({DiskUse::kDiscard, offset, length});
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
    beforeUse_({DiskUse::kFlush});
    if (unflushed_) {
        unflushed_->Forget();
    }
}

void Disk::DropCache() const {
    ioctl(node_.Get(), BLKFLSBUF, 0);
}

}  // namespace simulation
