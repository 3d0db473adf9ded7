// Whether an SSD is supported on this appliance.

#include <algorithm>
#include <cinttypes>
#include <cstdlib>
#include <optional>

#include "common/guard.h"
#include "common/log.h"
#include "common/text.h"
#include "ssd_support/ssd_support.h"

namespace flashcache {
namespace {

// A number beyond 32 bits counts as the largest there is: cut, it could be a build that we have.
int32_t ReadNumber(const char* text) noexcept {
    return static_cast<int32_t>(std::clamp<long>(std::strtol(text, nullptr, 10), INT32_MIN, INT32_MAX));
}

// What the answer depends on, beside the database.
struct Appliance {
    int32_t build;
    char model[256];
};

// Empty when build or model cannot be told.
std::optional<Appliance> ReadAppliance() noexcept {
    Appliance appliance{};
    char build[16] = "";
    if (VLIBCFileGetKeyValue(kVersionFile, "buildnumber", build, sizeof build, 0) <= 0) {
        LogError()("cannot get build numner");
        return std::nullopt;
    }
    if (VLIBCStrTrimSpace(build, 0) < 0) {
        return std::nullopt;
    }
    appliance.build = ReadNumber(build);
    if (VLIBCFileGetKeyValue(kModelFile, "upnpmodelname", appliance.model, sizeof appliance.model, 0) <= 0) {
        LogError()("cannot get model name");
        return std::nullopt;
    }
    return appliance;
}

// Whether a section's keys support the appliance: they name the build since which they do.
int Supports(const StringHash& keys, const Appliance& appliance) noexcept {
    const char* since = VLIBCSzHashGetValue(keys.get(), appliance.model);
    return since != nullptr && ReadNumber(since) <= appliance.build ? 1 : 0;
}

StringHash AllocKeys(Where where = Where::current()) noexcept {
    StringHash keys(VLIBCSzHashAlloc(kCapacity));
    if (!keys) {
        LogPlatformError(where)("Failed to alloc hash for %s, ", kDatabase);
    }
    return keys;
}

int SupportsSection(const char* sectionName) {
    const std::optional<Appliance> appliance = ReadAppliance();
    if (!appliance) {
        return 0;
    }
    const Text section = TrimmedCopy(sectionName);
    if (!section) {
        return 0;
    }
    StringHash keys = AllocKeys();
    if (!keys || VLIBCFileGetSection(kDatabase, section.get(), keys.address()) < 0) {
        return 0;
    }
    return Supports(keys, *appliance);
}

// The first section for this model and size, NULL when there is none; part of `names`.
const char* FindSection(const VLIBC_SZLIST* names, const char* model, uint64_t size) noexcept {
    for (int i = 0; const char* name = VLIBCSzListGet(names, i); ++i) {
        if (SectionFits(name, model, size)) {
            return name;
        }
    }
    return nullptr;
}

int SupportsModel(const FLASHCACHE_SSD_INFO& ssd) {
    const std::optional<Appliance> appliance = ReadAppliance();
    if (!appliance) {
        return 0;
    }
    const Text model = TrimmedCopy(ssd.Model);
    if (!model) {
        return 0;
    }
    StringList names(VLIBCSzListAlloc(kCapacity));
    if (!names) {
        LogPlatformError()("Failed to alloc list for %s, ", kDatabase);
        return 0;
    }
    StringHash keys = AllocKeys();
    if (!keys) {
        return 0;
    }
    if (VLIBCFileEnumSection(kDatabase, names.address()) < 0) {
        LogError()("Fail to enum sections of [%s]", kDatabase);
        return 0;
    }
    const char* section = FindSection(names.get(), model.get(), ssd.Size);
    if (section == nullptr) {
        return 0;
    }
    if (VLIBCFileGetSection(kDatabase, section, keys.address()) < 0) {
        LogPlatformError()("Fail to get section [%s] of [%s]. ", section, kDatabase);
        return 0;
    }
    return Supports(keys, *appliance);
}

}  // namespace

// A name such as "SATA-X200|120" or "SATA-X200|120GB".
bool SectionFits(const char* name, const char* model, uint64_t size) noexcept {
    constexpr uint64_t kGiB = 1ULL << 30U;
    const char* bar = std::strchr(name, '|');
    if (bar == nullptr || !std::string_view(name, static_cast<std::size_t>(bar - name)).starts_with(model)) {
        return false;
    }
    const uint64_t gib = IsDigit(bar[1]) ? std::strtoull(bar + 1, nullptr, 10) : 0;
    if (gib > UINT64_MAX / (2 * kGiB)) {
        return false;  // no SSD's capacity, and its bytes would wrap round to one
    }
    const uint64_t capacity = gib * kGiB;
    const uint64_t tolerance = capacity / 10;
    return capacity - tolerance <= size && size <= capacity + tolerance;
}

Text TrimmedCopy(const char* text) {
    Text copy = CopyText(text);
    return VLIBCStrTrimSpace(copy.get(), 0) < 0 ? Text() : std::move(copy);
}

}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCacheIsSSDSupport(const char* sectionName) {
    if (sectionName == nullptr) {
        return 0;
    }
    return Guarded(0, [&] { return SupportsSection(sectionName); });
}

int VEMOFlashCacheCheckSSDSupport(const FLASHCACHE_SSD_INFO* ssd) {
    if (ssd == nullptr || ssd->Model == nullptr || ssd->Size == 0) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return 0;
    }
    return Guarded(0, [&] { return SupportsModel(*ssd); });
}
