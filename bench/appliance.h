// The simulated appliance that everything here runs on.
#pragma once

#include <initializer_list>
#include <string>

namespace bench {

inline constexpr int kMostCaches = 64;

// Whether this process runs on one.
bool IsOnAppliance();

// Boots one and runs this program on it, with the same arguments. Returns only when that fails, with a
// message on standard error.
void RunOnAppliance(char** argv);

// Throws with `what` unless `good`.
void Require(bool good, const std::string& what);

void WriteFile(const std::string& path, const std::string& text);

// Makes `path` lead to `target` from now on.
void Link(const std::string& target, const std::string& path);

// Runs a program, which must succeed.
void RunProgram(const char* program, std::initializer_list<const char*> arguments);

std::string SsdPath(int cache);
std::string SpacePath(int cache);
std::string CacheDevPath(int cache);

// Creates write-back caches until so many are live. The kernel's text files on them become copies in memory:
// the real kernel answers from memory, the simulated one is another process, which it would take longer to
// ask.
void HaveCaches(int count);

// Has the platform forget the section file that it read last: to be called before one is read.
void ForgetFile();

}  // namespace bench
