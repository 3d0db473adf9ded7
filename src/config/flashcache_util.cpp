// Small utilities of the frame: device names, /proc entries, files, write-mode texts.

#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "common/guard.h"
#include "common/line_reader.h"
#include "common/log.h"
#include "common/text.h"
#include "config/config.h"

namespace flashcache {
namespace {

constexpr const char* kProcDir = "/proc/flashcache";
constexpr std::string_view kDevPrefix = "/dev/";

// By FLASHCACHE_WRITE_MODE.
constexpr std::array<const char*, 6> kWriteModeTexts = {"thru",  "back",        "around",
                                                        nullptr, "back_bypass", "back_crash"};

bool IsDirectory(const char* path) noexcept {
    struct stat status{};
    return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

bool IsDevicePath(const char* path) noexcept {
    return path != nullptr && StartsWith(path, kDevPrefix);
}

bool IsCacheDevPath(const char* path) noexcept {
    return path != nullptr && StartsWith(path, kCacheDevPrefix);
}

const char* CacheName(const char* cacheDevPath) noexcept {
    return cacheDevPath + std::strlen(kMapperPrefix);
}

const char* WriteModeText(FLASHCACHE_WRITE_MODE mode) noexcept {
    const auto index = static_cast<std::size_t>(mode);
    return index < kWriteModeTexts.size() ? kWriteModeTexts[index] : nullptr;
}

FLASHCACHE_WRITE_MODE WriteModeFromText(const char* text) noexcept {
    for (std::size_t mode = 0; mode < kWriteModeTexts.size(); ++mode) {
        if (SameText(text, kWriteModeTexts[mode])) {
            return static_cast<FLASHCACHE_WRITE_MODE>(mode);
        }
    }
    return FLASHCACHE_WRITE_THRU;
}

std::string ProcEntryPath(std::size_t size, const char* ssdName, const char* spaceName, const char* entry) {
    return FormatCut(size, "%s/%s+%s/%s", kProcDir, ssdName, spaceName, entry);
}

}  // namespace flashcache

using namespace flashcache;

const char* VEMOFlashCacheGetShortDevName(const char* path) {
    if (!IsDevicePath(path)) {
        LogError()("Bad device path : [%s]", TextOrNull(path));
        return nullptr;
    }
    return LastComponent(path);
}

char* FlashCacheUtilProcRead(const char* ssdPath, const char* spacePath, const char* entry) {
    return Guarded<char*>(nullptr, [&]() -> char* {
        if (spacePath == nullptr || entry == nullptr || ssdPath == nullptr) {
            LogError()("Incorrect Parameter");
            return nullptr;
        }
        const char* ssdName = VEMOFlashCacheGetShortDevName(ssdPath);
        if (ssdName == nullptr) {
            LogError()("Failed to get ssd dev");
            return nullptr;
        }
        const char* spaceName = VEMOFlashCacheGetShortDevName(spacePath);
        if (spaceName == nullptr) {
            LogError()("Failed to get space dev");
            return nullptr;
        }
        const std::string path = ProcEntryPath(1024, ssdName, spaceName, entry);
        const File file(std::fopen(path.c_str(), "re"));
        if (!file) {
            LogError()("Failed to open %s to read", path.c_str());
            return nullptr;
        }
        std::string last;
        LineReader lines(file.get());
        while (const char* line = lines.Next()) {
            last = line;
        }
        if (last.empty()) {
            LogError()("Failed to read a line from %s", path.c_str());
            return nullptr;
        }
        return CopyText(last.c_str()).release();
    });
}

int VEMOFCCopyFile(const char* src, const char* dst) {
    if (src == nullptr || dst == nullptr) {
        LogError()("Incorrect parameter");
        return -1;
    }
    if (VLIBCExecl("/bin/cp", VLIBC_EXEC_WAIT, "-f", src, dst, nullptr) != 0) {
        LogError()("Failed to copy %s to %s", src, dst);
        return -1;
    }
    return 0;
}

int VEMOFCCheckDirExistOrCreate(const char* path) {
    if (path == nullptr) {
        LogError()("Incorrect parameter");
        return -1;
    }
    if (!IsDirectory(path) && mkdir(path, 0755) != 0) {
        LogError()("Failed to create %s: %s", path, strerror(errno));
        return -1;
    }
    return 0;
}

const char* FlashCacheWriteModeToStr(FLASHCACHE_WRITE_MODE mode) {
    const char* text = WriteModeText(mode);
    if (text == nullptr) {
        LogError()("Incorrect mode = %d", mode);
    }
    return text;
}
