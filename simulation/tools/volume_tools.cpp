// What else the appliance's programs ask about volumes.
#include <filesystem>
#include <iostream>

#include "simulation/tools/tool.h"

namespace simulation {

// Says where the iSCSI targets of a volume lie, nothing when it has none.
int Iscsiep(const Words& arguments) {
    if (arguments.size() != 2 || arguments[0] != "--get_root_dir_for_volpath") {
        return Refuse("usage: vemoiscsiep --get_root_dir_for_volpath VOLUME");
    }
    const std::string folder = arguments[1] + "/@iSCSI";
    std::error_code absent;
    if (std::filesystem::is_directory(folder, absent)) {
        std::cout << folder << "\n";
    }
    return 0;
}

}  // namespace simulation
