#include "sweep/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "support/appliance.h"

namespace sweep {
namespace {

constexpr const char* kLocks[] = {"/run/lock/ssdcache.lock", "/run/lock/ssdcache-apm-flush.lock",
                                  "/var/lock/cache_config_serial_list.lock"};
constexpr const char* kFolders[] = {"/usr/vemo/etc", "/tmp"};
constexpr const char* kKept[] = {appliance::kConfig, appliance::kConfigCopy,
                                 "/usr/vemo/etc/flashcache_ssd_sn_list.conf"};
constexpr std::size_t kKeysOfAnEntry = 5;  // the fewest that are written

bool IsLeftover(const std::string& name) {
    return name.find("XXXX") != std::string::npos || name.ends_with(".tmp") || name.starts_with(".vemo-");
}

}  // namespace

std::set<std::string> Entries(const std::string& folder) {
    std::set<std::string> names;
    DIR* const dir = opendir(folder.c_str());
    while (const dirent* entry = dir == nullptr ? nullptr : readdir(dir)) {
        names.insert(entry->d_name);
    }
    if (dir != nullptr) {
        closedir(dir);
    }
    return names;
}

Files::Files() {
    for (const char* folder : kFolders) {
        names_[folder] = Entries(folder);
    }
    for (const char* file : kKept) {
        texts_[file] = ReadWhole(file);
    }
}

void Files::Restore() const {
    for (const auto& [file, text] : texts_) {
        WriteWhole(file, text);
    }
    for (const std::string& leftover : Leftovers()) {
        unlink(leftover.c_str());
    }
}

std::set<std::string> Files::Leftovers() const {
    std::set<std::string> left;
    for (const auto& [folder, names] : names_) {
        for (const std::string& name : Entries(folder)) {
            if (!names.contains(name) && IsLeftover(name)) {
                left.insert(folder + "/" + name);
            }
        }
    }
    return left;
}

std::string Files::WrongSections(const std::string& file) {
    std::istringstream text(ReadWhole(file));
    std::string section;
    std::size_t keys = kKeysOfAnEntry;
    for (std::string line; std::getline(text, line);) {
        if (!line.starts_with('[')) {
            ++keys;
            continue;
        }
        if (keys < kKeysOfAnEntry) {
            break;
        }
        section = line;
        keys = 0;
    }
    return keys < kKeysOfAnEntry ? file + ": " + section + " is written by half" : "";
}

std::string Files::Wrong(const Operation& operation) const {
    if (operation.name != "ConfigGet" && VEMOFlashCacheConfigGet(nullptr, nullptr) < 0) {
        return "the configuration cannot be read any more";
    }
    for (const char* file : {appliance::kConfig, appliance::kConfigCopy}) {
        if (ReadWhole(file).find("/dev/vg1/volume_8") == std::string::npos) {
            return std::string(file) + " has lost another cache's entry";
        }
        if (std::string wrong = WrongSections(file); !wrong.empty()) {
            return wrong;
        }
    }
    return "";
}

std::string HeldLock() {
    for (const char* path : kLocks) {
        const int fd = open(path, O_RDWR | O_CLOEXEC);
        const bool isHeld = fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) != 0;
        if (fd >= 0) {
            close(fd);
        }
        if (isHeld) {
            return std::string(path) + " is still held";
        }
    }
    return "";
}

}  // namespace sweep
