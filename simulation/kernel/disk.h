#pragma once

#include <sys/uio.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/unique_fd.h"
#include "simulation/kernel/unflushed.h"

namespace simulation {

enum class DiskUse : uint8_t { kRead, kWrite, kDiscard, kFlush };

// What a disk is asked to do; a flush is of no bytes.
struct DiskRequest {
    DiskUse use;
    uint64_t offset = 0;
    uint64_t length = 0;
};

// Pieces of memory, one after the other.
using Memory = std::vector<iovec>;

// An SSD or a volume as the simulated kernel sees it: the sparse file that holds its bytes. The kernel never
// goes through the loop device over that file, whose I/O could in turn wait for the kernel.
class Disk {
  public:
    // `file` holds the bytes; `node` is the loop device over it, used only to drop what its readers have
    // cached; `unflushed` makes its cache a volatile one.
    Disk(std::string path, base::UniqueFd file, base::UniqueFd node,
         std::optional<Unflushed> unflushed = std::nullopt)
        : path_(std::move(path)),
          file_(std::move(file)),
          node_(std::move(node)),
          unflushed_(std::move(unflushed)) {}

    const std::string& Path() const { return path_; }
    // The text after the last "/" of the path.
    std::string ShortName() const { return path_.substr(path_.rfind('/') + 1); }
    uint64_t Size() const;

    // Reads as many bytes as there is memory; what lies past the end reads as zeros.
    void Read(uint64_t offset, std::span<char> into) const;
    void Read(uint64_t offset, Memory into) const;
    // Writes what lies before the end.
    void Write(uint64_t offset, std::span<const char> from);
    void Write(uint64_t offset, Memory from);
    // Makes a range read as zeros.
    void Punch(uint64_t offset, uint64_t length);
    // On return everything written before survives a power cut.
    void Flush();
    // Has `hook` called before each request; what it throws is how the request ends.
    void BeforeEachUse(std::function<void(const DiskRequest&)> hook) { beforeUse_ = std::move(hook); }
    // Writes out and forgets what the block device has cached, so that its readers and we see the same
    // bytes.
    void DropCache() const;

  private:
    void KeepUnflushed(uint64_t offset, uint64_t length);

    std::string path_;
    base::UniqueFd file_;
    base::UniqueFd node_;
    std::optional<Unflushed> unflushed_;
    std::function<void(const DiskRequest&)> beforeUse_ = [](const DiskRequest&) {};
    uint64_t least_ = 0;  // the size is at least that: disks only grow
};

}  // namespace simulation
