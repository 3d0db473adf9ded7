#include "simulation/kernel/unflushed.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <random>

#include "base/unique_fd.h"
#include "simulation/common/checked.h"

namespace simulation {

namespace {

constexpr uint64_t kBlock = 4096;
constexpr const char* kWhat = "what a disk has not flushed";

// The file: the seed, then such records.
struct Record {
    uint64_t block = 0;
    std::array<char, kBlock> content{};
};

// True when all of it was there.
template <typename Plain>
bool ReadPlain(int file, uint64_t offset, Plain& into) {
    return Checked(pread(file, &into, sizeof into, static_cast<off_t>(offset)), kWhat) == sizeof into;
}

template <typename Plain>
void AppendPlain(int file, const Plain& plain) {
    struct stat status{};
    Checked(fstat(file, &status), kWhat);
    if (Checked(pwrite(file, &plain, sizeof plain, status.st_size), kWhat) != sizeof plain) {
        errno = ENOSPC;
        ThrowErrno(kWhat);
    }
}

}  // namespace

Unflushed::Unflushed(base::UniqueFd file, uint64_t seed) : file_(std::move(file)) {
    Checked(ftruncate(file_.Get(), 0), kWhat);
    AppendPlain(file_.Get(), seed);
}

void Unflushed::Keep(int disk, uint64_t offset, uint64_t length) {
    for (uint64_t block = offset / kBlock; block * kBlock < offset + length; ++block) {
        if (!blocks_.contains(block)) {
            Record record{block, {}};
            Checked(pread(disk, record.content.data(), kBlock, static_cast<off_t>(block * kBlock)), kWhat);
            AppendPlain(file_.Get(), record);
            blocks_.insert(block);
        }
    }
}

void Unflushed::Forget() {
    if (!blocks_.empty()) {
        Checked(ftruncate(file_.Get(), sizeof(uint64_t)), kWhat);
        blocks_.clear();
    }
}

// Killed on the way, it does the same again: a record that is cut off is of a block that was not written.
void Unflushed::TakeBack(int file, int disk) {
    struct stat status{};
    Checked(fstat(disk, &status), kWhat);
    const auto size = static_cast<uint64_t>(status.st_size);
    uint64_t seed = 0;
    if (ReadPlain(file, 0, seed)) {
        std::mt19937_64 random(seed);
        const uint64_t percent = random() % 101;  // from all is there to all is lost
        Record record;
        for (uint64_t at = sizeof seed; ReadPlain(file, at, record); at += sizeof record) {
            const uint64_t offset = record.block * kBlock;
            if (random() % 100 < percent) {
                const uint64_t length = std::min(kBlock, size - std::min(size, offset));
                Checked(pwrite(disk, record.content.data(), length, static_cast<off_t>(offset)), kWhat);
            }
        }
    }
    Checked(ftruncate(file, 0), kWhat);
}

}  // namespace simulation
