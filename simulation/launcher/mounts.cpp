#include "simulation/launcher/mounts.h"

#include <fcntl.h>
#include <sys/mount.h>

#include <fstream>
#include <sstream>

#include "base/unique_fd.h"
#include "simulation/common/checked.h"

namespace simulation {

namespace {

// Mount points are told with blanks and the like as "\040".
std::string Unescape(const std::string& text) {
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size()) {
            plain += static_cast<char>(std::stoi(text.substr(i + 1, 3), nullptr, 8));
            i += 3;
        } else {
            plain += text[i];
        }
    }
    return plain;
}

}  // namespace

DetachedMount::DetachedMount(const std::string& path)
    : tree_(Checked(
          open_tree(AT_FDCWD, path.c_str(), OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | unsigned{AT_RECURSIVE}),
          path)) {}

DetachedMount& DetachedMount::MakeReadOnly() {
    mount_attr attributes{};
    attributes.attr_set = MOUNT_ATTR_RDONLY;
    Checked(mount_setattr(tree_.Get(), "", AT_EMPTY_PATH | AT_RECURSIVE, &attributes, sizeof attributes),
            "making a mount read-only");
    return *this;
}

void DetachedMount::AttachAt(const std::string& target) const {
    Checked(move_mount(tree_.Get(), "", AT_FDCWD, target.c_str(), MOVE_MOUNT_F_EMPTY_PATH), target);
}

void Mount(const std::string& source, const std::string& target, const char* type, unsigned long flags,
           const std::string& options) {
    Checked(mount(source.c_str(), target.c_str(), type, flags, options.c_str()), "mounting " + target);
}

void MountTmpfs(const std::string& target, const char* mode) {
    Mount("vemo-appliance", target, "tmpfs", 0, std::string("mode=") + mode);
}

base::UniqueFd OpenOwnProc() {
    const base::UniqueFd context(Checked(fsopen("proc", FSOPEN_CLOEXEC), "proc"));
    Checked(fsconfig(context.Get(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0), "proc");
    return base::UniqueFd(Checked(fsmount(context.Get(), FSMOUNT_CLOEXEC, 0), "proc"));
}

std::vector<std::string> MountPoints() {
    // "36 35 98:0 /root /mnt/point rw,noatime ..."
    std::vector<std::string> points;
    std::ifstream file("/proc/self/mountinfo");
    for (std::string line; std::getline(file, line);) {
        std::istringstream fields(line);
        std::string skipped;
        std::string point;
        fields >> skipped >> skipped >> skipped >> skipped >> point;
        points.push_back(Unescape(point));
    }
    return points;
}

bool IsWithin(const std::string& path, const std::string& folder) {
    return path == folder || path.starts_with(folder + "/");
}

}  // namespace simulation
