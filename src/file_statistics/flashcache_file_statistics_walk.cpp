// Walking the files of a volume.

#include <ftw.h>

#include <climits>
#include <cstring>
#include <initializer_list>
#include <string>

#include "common/handle.h"
#include "common/line_reader.h"
#include "common/log.h"
#include "common/text.h"
#include "file_statistics/file_statistics.h"
#include "platform/vemosdk.h"

namespace flashcache {
namespace {

constexpr std::size_t kPathSize = 4096;
constexpr int kShareKinds = 0x0F0F;
constexpr int kShareOpenDirs = 512;
constexpr int kIscsiOpenDirs = 64;

// What this thread's run counts: nftw hands its callback no data of ours.
thread_local FileAges ages;

int FlashCacheStatFileVisit(const char* /*path*/, const struct stat* status, int type,
                            FTW* /*position*/) noexcept {
    const bool isFile = type == FTW_F || type == FTW_SL || type == FTW_SLN;
    if (status != nullptr && isFile) {
        CountFile(ages, *status);
    }
    return 0;
}

// nftw reaches what lies in the folders that it holds open by name, however deep they are; for what is left
// in those that it had to close, it needs a path. A folder so deep that both ends meet would end the walk,
// and one still deeper our stack: it is passed over.
bool IsTooDeep(const char* path, const FTW& position) noexcept {
    return position.level >= kShareOpenDirs && std::strlen(path) + 1 + NAME_MAX >= PATH_MAX;
}

int VisitInShare(const char* path, const struct stat* status, int type, FTW* position) noexcept {
    if (type == FTW_D && IsTooDeep(path, *position)) {
        return FTW_SKIP_SUBTREE;
    }
    return FlashCacheStatFileVisit(path, status, type, position);
}

void WalkRoot(const std::string& root, __nftw_func_t visit, int openDirs, int flags,
              Where where = Where::current()) {
    if (nftw(root.c_str(), visit, openDirs, FTW_PHYS | FTW_MOUNT | flags) != 0) {
        __extension__ LogError(where)("Fail to do nftw ot [%s]. errno=%m", root.c_str());
    }
}

void WalkShare(const std::string& root) {
    WalkRoot(root, VisitInShare, kShareOpenDirs, FTW_ACTIONRETVAL);
}

void WalkIscsiRoot(const char* volumePath) {
    const ChildStream tool(
        VLIBCPopen("/usr/vemo/bin/vemoiscsiep", "r", "--get_root_dir_for_volpath", volumePath, nullptr));
    if (!tool) {
        return;
    }
    LineReader lines(tool.get(), kPathSize - 1);
    const char* line = lines.Next();
    if (line == nullptr) {
        return;
    }
    const Text root = CopyText(line);
    if (VLIBCStrTrimSpace(root.get(), 0) < 0) {
        LogPlatformError()("Trim space fail, path = %s", root.get());
    }
    if (VLIBCFileCheckDir(root.get()) == 1) {
        WalkRoot(root.get(), FlashCacheStatFileVisit, kIscsiOpenDirs, 0);
    }
}

int FlashCacheStatVolumeWalk(const char* volumePath) {
    StringList shares(VLIBCSzListAlloc(1024));
    if (!shares) {
        LogError()("pVolShareList alloc fail");
        return -1;
    }
    if (VEMOShareEnumByMntPathAndEnumType(volumePath, kShareKinds, shares.address()) < 0) {
        LogPlatformError()("VEMOShareEnumByMntPathAndEnumType fail, path = %s", volumePath);
        return -1;
    }
    for (int i = 0; const char* share = VLIBCSzListGet(shares.get(), i); ++i) {
        WalkShare(FormatCut(kPathSize, "%s/%s", volumePath, share));
    }
    for (const char* folder : {"@appstore", "@database"}) {
        const std::string root = FormatCut(kPathSize, "%s/%s", volumePath, folder);
        if (VLIBCFileCheckDir(root.c_str()) == 1) {
            WalkShare(root);
        }
    }
    WalkIscsiRoot(volumePath);
    return 0;
}

}  // namespace

const FileAges* CountVolume(const tm& local, const char* volumePath) {
    ages = StartAges(local);
    if (FlashCacheStatVolumeWalk(volumePath) != 0) {
        LogError()("Fail to do file statistics of [%s]", volumePath);
        return nullptr;
    }
    return &ages;
}

}  // namespace flashcache
