// Small files of the tool's own that must be whole or not there.
#pragma once

#include <sys/types.h>

#include <string>

namespace cli {

// Replaces the file, and makes its folder when absent. After a kill or a power cut the old text or the new
// one is there. False, and errno, when it could not be written; nothing is left of the attempt then.
bool WriteKeptFile(const std::string& path, const std::string& text, mode_t mode = 0600);

// Why a file that the user names cannot be written: its folder is none; empty: it may be.
std::string WhyNoFile(const std::string& path);

// Writes a file that the user names, for all to read, as WriteKeptFile does. Throws a Failure that says that
// `what`, such as "the metrics", could not be written.
void WriteFileForAll(const std::string& path, const std::string& text, const std::string& what);

}  // namespace cli
