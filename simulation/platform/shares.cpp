#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "platform/vemosdk.h"
#include "simulation/platform/errors.h"

using namespace vemo::platform;

namespace {

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

bool IsShareName(std::string_view name) {
    return !name.empty() && name.front() != '.' && name.front() != '@' && name != "lost+found";
}

bool IsFolder(DIR* parent, const dirent& entry) {
    if (entry.d_type != DT_UNKNOWN) return entry.d_type == DT_DIR;
    const int folder = dirfd(parent);
    struct stat status{};
    return folder >= 0 && fstatat(folder, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(status.st_mode);
}

}  // namespace

// The stand-in knows one kind of share, a folder of the volume: it is of every mask.
int VEMOShareEnumByMntPathAndEnumType(const char* mountPath, int /*mask*/, VLIBC_SZLIST** list) {
    if (mountPath == nullptr || list == nullptr) return Fail(VLIBC_ERR_BAD_PARAMETER);
    return Guard(-1, [&] {
        const std::unique_ptr<DIR, CloseFolder> folder(opendir(mountPath));
        if (!folder) return Fail(VLIBC_ERR_OPEN_FAILED);
        std::vector<std::string> names;
        while (const dirent* const entry = readdir(folder.get())) {
            if (IsShareName(entry->d_name) && IsFolder(folder.get(), *entry))
                names.emplace_back(entry->d_name);
        }
        std::sort(names.begin(), names.end());
        for (const std::string& name : names) {
            if (VLIBCStrTok(name.c_str(), "", list) != 1) return -1;  // no separators: one piece, the name
        }
        return static_cast<int>(names.size());
    });
}
