#include "appliance.h"

#include <sched.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "platform/vemocore.h"
#include "vemoflashcache.h"

namespace bench {
namespace {

namespace fs = std::filesystem;

constexpr const char* kOwnProgram = "/proc/self/exe";

void Mount(const char* source, const fs::path& target, const char* type, unsigned long flags) {
    fs::create_directories(target);
    Require(mount(source, target.c_str(), type, flags, nullptr) == 0, "cannot mount " + target.string());
}

// Puts a /proc in memory over the appliance's: with the caches' text files as they are now, and links to the
// machine's own files.
void CoverProc() {
    const fs::path cover = "/tmp/proc";
    Mount("proc", cover / ".machine", "proc", 0);
    for (const auto& entry : fs::directory_iterator(cover / ".machine")) {
        if (entry.path().filename() != "sys") {
            fs::create_symlink(".machine" / entry.path().filename(), cover / entry.path().filename());
        }
    }
    for (const fs::path name : {"flashcache", "sys/dev"}) {
        const fs::path folder = "/proc" / name;
        for (const auto& entry : fs::recursive_directory_iterator(folder)) {
            const fs::path copy = cover / name / entry.path().lexically_relative(folder);
            if (entry.is_directory()) {
                fs::create_directories(copy);
            } else {
                std::ofstream(copy) << std::ifstream(entry.path()).rdbuf();
            }
        }
    }
    Mount(cover.c_str(), "/proc", nullptr, MS_BIND | MS_REC);
}

void UncoverProc() {
    umount2("/proc", MNT_DETACH);
    umount2("/tmp/proc/.machine", MNT_DETACH);
    fs::remove_all("/tmp/proc");
}

// From now on our mounts are seen by us alone, and are gone with us.
void LeaveMountNamespace() {
    Require(unshare(CLONE_NEWNS) == 0 && mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0,
            "a mount namespace");
}

void CreateCache(int number) {
    const std::string ssd = SsdPath(number);
    const std::string space = SpacePath(number);
    FLASHCACHE_CREATE_PARAM param{};
    param.SSDDevPath = ssd.c_str();
    param.SpacePath = space.c_str();
    param.CacheSizeKB = 8 << 10;
    param.Policy.WriteMode = FLASHCACHE_WRITE_BACK;
    Require(VEMOFlashCacheCreate(&param, nullptr, 0) == 0,
            "cannot create a cache on " + ssd + " and " + space);
}

}  // namespace

bool IsOnAppliance() {
    return access("/dev/vemo-appliance", F_OK) == 0;
}

void RunOnAppliance(char** argv) {
    const std::string self = fs::read_symlink(kOwnProgram);
    const std::string appliance = fs::path(self).parent_path() / "vemo-appliance";
    const std::string pairs = std::to_string(kMostCaches);
    std::vector<const char*> arguments = {appliance.c_str(), "--pairs", pairs.c_str(), "--ssd-size", "16M"};
    // For what needs a cache of its own making, and a bare device; after all status of caches was measured.
    for (const char* pair : {"md90+vg2/volume_1", "md91+vg2/volume_2", "md92+vg2/volume_3"}) {
        arguments.insert(arguments.end(), {"--pair", pair});
    }
    arguments.push_back(self.c_str());
    while (*++argv != nullptr) {
        arguments.push_back(*argv);
    }
    arguments.push_back(nullptr);
    execv(appliance.c_str(), const_cast<char* const*>(arguments.data()));
    std::perror(appliance.c_str());
}

void Require(bool good, const std::string& what) {
    if (!good) {
        throw std::runtime_error(what);
    }
}

void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::trunc);
    file << text << std::flush;
    Require(file.good(), "cannot write " + path);
}

void Link(const std::string& target, const std::string& path) {
    fs::remove(path);
    fs::create_symlink(target, path);
}

void RunProgram(const char* program, std::initializer_list<const char*> arguments) {
    std::vector<const char*> all = {program};
    all.insert(all.end(), arguments);
    all.push_back(nullptr);
    pid_t child = -1;
    int status = -1;
    const bool started =
        posix_spawn(&child, program, nullptr, nullptr, const_cast<char* const*>(all.data()), environ) == 0;
    Require(started && waitpid(child, &status, 0) == child && status == 0, std::string(program) + " failed");
}

std::string SsdPath(int cache) {
    return "/dev/md" + std::to_string(3 + cache);
}

std::string SpacePath(int cache) {
    return "/dev/vg1/volume_" + std::to_string(1 + cache);
}

std::string CacheDevPath(int cache) {
    return "/dev/mapper/cachedev_" + std::to_string(cache);
}

void HaveCaches(int count) {
    static int have = 0;
    if (have >= count) {
        return;
    }
    if (have == 0) {
        LeaveMountNamespace();
    } else {
        UncoverProc();
    }
    while (have < count) {
        CreateCache(have++);
    }
    CoverProc();
}

void ForgetFile() {
    const char* const other = "/tmp/other.conf";  // the platform remembers one file
    if (!fs::exists(other)) {
        WriteFile(other, "[section]\nkey=value\n");
    }
    VLIBC_SZLIST* list = nullptr;
    Require(VLIBCFileEnumSection(other, &list) == 1, other);
    VLIBCSzListFree(list);
}

}  // namespace bench
