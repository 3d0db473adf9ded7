// The status of all caches, against running the same programs and doing nothing else.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <stdexcept>

#include "appliance.h"
#include "benches.h"
#include "comparison.h"
#include "vemoflashcache.h"

namespace bench {
namespace {

constexpr const char* kDmsetup = "/sbin/dmsetup";

void ReadToEnd(int fd) {
    std::array<char, 4096> buffer{};
    while (read(fd, buffer.data(), buffer.size()) > 0) {
    }
}

void SpawnTable(const std::string& device) {
    std::array<int, 2> ends{};
    Require(pipe2(ends.data(), O_CLOEXEC) == 0, "pipe2");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    const std::array<const char*, 4> arguments = {kDmsetup, "table", device.c_str(), nullptr};
    pid_t child = -1;
    const int error =
        posix_spawn(&child, kDmsetup, &actions, nullptr, const_cast<char* const*>(arguments.data()), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    ReadToEnd(ends[0]);
    close(ends[0]);
    int status = -1;
    Require(error == 0 && waitpid(child, &status, 0) == child && status == 0, "dmsetup failed");
}

void ShellTable(const std::string& device) {
    FILE* const stream = popen((kDmsetup + std::string(" table ") + device).c_str(), "r");
    if (stream == nullptr) {
        throw std::runtime_error("popen failed");
    }
    ReadToEnd(fileno(stream));
    Require(pclose(stream) == 0, "dmsetup failed");
}

template <class Table>
Cost TablesOf(int count, const Table& table) {
    return CostOf([&] {
        for (int cache = 0; cache < count; ++cache) {
            table(CacheDevPath(cache));
        }
    });
}

Cost Status(int count) {
    HaveCaches(count);
    return CostOf([&] {
        FLASHCACHE_STAT* list = nullptr;
        Require(VEMOFlashCacheStatGet(nullptr, &list) == count, "not all caches were described");
        VEMOFlashCacheStatFree(&list);
    });
}

}  // namespace

void RegisterStatus() {
    for (const int count : {1, 8, kMostCaches}) {
        Comparison comparison;
        comparison.name = "status/" + std::to_string(count);
        comparison.ours = [count] { return Status(count); };
        comparison.pairs = count == 1 ? 300 : count == 8 ? 60 : 11;
        comparison.baselineName = "posix_spawn of dmsetup, read";
        comparison.baseline = [count] { return TablesOf(count, SpawnTable); };
        comparison.lines = {{kWall, 1.10}, {kCpu, 0}};
        Register(comparison);
        comparison.name += "/shell";
        comparison.baselineName = "popen(3), a shell";
        comparison.baseline = [count] { return TablesOf(count, ShellTable); };
        comparison.lines = {{kWall, 0}, {kCpu, 0}};
        Register(comparison);
    }
}

}  // namespace bench
