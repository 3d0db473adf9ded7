// Whole files at a time: read into memory, replaced in one step.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>
#include <string_view>

namespace vemo::platform {

// The content of a regular file of at most 64 MiB, and its status as it was before the reading.
// Nothing on failure: errno and the error slot say why.
std::optional<std::string> ReadWholeFile(const char* path, struct stat* status = nullptr);

// As ReadWholeFile, but a file that does not exist is an empty one.
std::optional<std::string> ReadFileToEdit(const char* path);

// Makes `content` the file's content, durably, or leaves the file as it was: a crash at any instant leaves
// the old or the new file. Mode and owner stay; of a symbolic link, what it leads to is replaced. 0, or -1
// with errno and the error slot set.
int ReplaceFile(const char* path, std::string_view content);

}  // namespace vemo::platform
