// The attribute of a loaded cache: whether it is to be removed by force.

#include <cstdio>

#include "common/guard.h"
#include "common/handle.h"
#include "common/log.h"
#include "common/text.h"
#include "config/config.h"

namespace flashcache {
namespace {

constexpr const char* kAttributeEntry = "flashcache_attribute";
constexpr const char* kNone = "none";
constexpr const char* kForceRemove = "force-remove";

// NULL for a value that is no attribute.
const char* AttributeText(FLASHCACHE_ATTRIBUTE attribute) noexcept {
    switch (attribute) {
        case FLASHCACHE_ATTRIBUTE_NONE:
            return kNone;
        case FLASHCACHE_ATTRIBUTE_FORCE_REMOVE:
            return kForceRemove;
        default:
            return nullptr;
    }
}

int WriteAttribute(const std::string& path, FLASHCACHE_ATTRIBUTE attribute) {
    const File file(std::fopen(path.c_str(), "we"));
    if (!file) {
        LogError()("Failed to open %s to write", path.c_str());
        return -1;
    }
    const char* text = AttributeText(attribute);
    if (text == nullptr) {
        LogError()("Unknown attribute = %d", attribute);
        return -1;
    }
    // Unbuffered, so that the kernel gets it in one piece and its refusal is seen here.
    std::setvbuf(file.get(), nullptr, _IONBF, 0);
    const std::size_t size = std::strlen(text) + 1;
    const std::size_t written = std::fwrite(text, 1, size, file.get());
    if (written < size) {
        LogError()("Write failed (numWritten = %zd)", static_cast<ssize_t>(written));
        return -1;
    }
    return 0;
}

int SetAttribute(const char* ssdPath, const char* spacePath, FLASHCACHE_ATTRIBUTE attribute) {
    const char* ssdName = VEMOFlashCacheGetShortDevName(ssdPath);
    if (ssdName == nullptr) {
        LogError()("Failed to get SSD dev");
        return -1;
    }
    const char* spaceName = VEMOFlashCacheGetShortDevName(spacePath);
    if (spaceName == nullptr) {
        LogError()("Failed to get Space dev");
        return -1;
    }
    return WriteAttribute(ProcEntryPath(512, ssdName, spaceName, kAttributeEntry), attribute);
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

FLASHCACHE_ATTRIBUTE VEMOFlashCacheAttributeGet(const char* ssdPath, const char* spacePath) {
    if (ssdPath == nullptr || spacePath == nullptr) {
        LogError()("Incorrect Parameter");
        return -1;
    }
    const Text text(FlashCacheUtilProcRead(ssdPath, spacePath, kAttributeEntry));
    if (!text) {
        LogError()("Failed to read %s", kAttributeEntry);
        return -1;
    }
    if (StartsWith(text.get(), kNone)) {
        return FLASHCACHE_ATTRIBUTE_NONE;
    }
    if (StartsWith(text.get(), kForceRemove)) {
        return FLASHCACHE_ATTRIBUTE_FORCE_REMOVE;
    }
    LogError()("Incorrect attribute = <%s>", text.get());
    return -1;
}

int VEMOFlashCacheAttributeSet(const char* ssdPath, const char* spacePath, FLASHCACHE_ATTRIBUTE attribute) {
    if (ssdPath == nullptr || spacePath == nullptr || attribute == -1) {
        LogError()("Incorrect Parameter");
        return -1;
    }
    return Guarded(-1, [&] { return SetAttribute(ssdPath, spacePath, attribute); });
}
