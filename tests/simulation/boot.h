// Boots of the appliance from the machine, on a folder that may keep its state.
#pragma once

#include <filesystem>
#include <string>

#include "simulation/shell.h"

inline const std::string kAppliance = VEMO_APPLIANCE;
inline const std::string kModules =
    "for m in vemo_flashcache_control flashcache flashcache_vemo; do insmod /lib/modules/$m.ko; done\n";
inline const std::string kLoad = "flashcache_load /dev/md3 cachedev_0 /dev/vg1/volume_1\n";

// A folder of our own that goes with us.
class Folder {
  public:
    Folder() {
        std::string path = std::filesystem::temp_directory_path() / "vemo-test-XXXXXX";
        path_ = mkdtemp(path.data());
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    std::string operator/(const std::string& name) const { return path_ / name; }

  private:
    std::filesystem::path path_;
};

inline std::string Quoted(const std::string& script) {
    return "'" + script + "'";
}

inline ShellResult Boot(const std::string& options, const std::string& script) {
    return Shell(kAppliance + " " + options + " sh -c " + Quoted(script));
}
