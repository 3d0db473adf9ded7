// Small files of the tool's own that must be whole or not there.
#pragma once

#include <sys/types.h>

#include <string>

namespace cli {

// Replaces the file, and makes its folder when absent. After a kill or a power cut the old text or the new
// one is there. False, and errno, when it could not be written; nothing is left of the attempt then.
bool WriteKeptFile(const std::string& path, const std::string& text, mode_t mode = 0600);

}  // namespace cli
