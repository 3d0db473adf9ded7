#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <set>
#include <string>

namespace simulation {

// What stat says; throws std::system_error.
struct stat StatusOf(const std::string& path);

// The size of the block device whose file system is mounted there; 0 when there is none.
uint64_t VolumeBytes(const std::string& volume);

// The size of a volume's bitmap, which has a bit for each 64 KiB. Throws when it cannot have one.
uint64_t BitmapBytes(const std::string& volume);

// Where a volume keeps its bitmap.
std::string BitmapFile(const std::string& volume);

// Puts a file in the place of another, whole or not at all.
void Store(const std::string& path, const std::string& content);

// Stores the bitmap of the blocks that these files of the volume occupy. Files that have gone since they
// were pinned cost nothing.
void StoreBitmap(const std::string& volume, const std::set<std::string>& files);

}  // namespace simulation
