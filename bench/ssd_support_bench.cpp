// The SSD compatibility database: looking up one SSD, against GLib doing the same; handing out all.

#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include <fmt/format.h>

#include "appliance.h"
#include "benches.h"
#include "comparison.h"
#include "key_file.h"
#include "vemoflashcache.h"

namespace bench {
namespace {

constexpr const char* kDatabase = "/etc.defaults/support_ssd.db";
constexpr const char* kAppliance = "VA-1621";
constexpr int kBuild = 42'218;
constexpr uint64_t kGiB = 1ULL << 30U;
constexpr int kGiBs[] = {120, 240, 480, 960};

int GiBOf(int number) {
    return kGiBs[number % 4];
}

std::string Model(int number) {
    return fmt::format("SSD-{:05}", number);
}

std::string Section(int number) {
    std::string text = fmt::format("[{}|{}]\n", Model(number), GiBOf(number));
    text += fmt::format("brand = Maker {}\nsize = {} GB\nsince = {}\n", number % 40, GiBOf(number), kBuild);
    text += "support_models = VA-218,VA-418,VA-818,VA-1618,VA-1621\n";
    for (const char* model : {"VA-218", "VA-418", "VA-818", "VA-1618", kAppliance}) {
        text += fmt::format("{} = {}\n", model, kBuild);
    }
    return text;
}

// Puts a database of so many sections in place.
void UseDatabase(int sections) {
    const std::string path = fmt::format("/tmp/support_ssd.{}", sections);
    if (access(path.c_str(), F_OK) != 0) {
        std::string text;
        for (int i = 0; i < sections; ++i) {
            text += Section(i);
        }
        WriteFile(path, text);
        WriteFile("/etc.defaults/VERSION", fmt::format("buildnumber=\"{}\"\n", kBuild));
        WriteFile("/etc.defaults/vemoinfo.conf", fmt::format("upnpmodelname=\"{}\"\n", kAppliance));
        usleep(20'000);  // a file that has just changed is read with suspicion
    }
    Link(path, kDatabase);
}

void HandOut(int sections) {
    FLASHCACHE_SUPPORT_SSD_LIST* list = nullptr;
    Require(VEMOFlashCacheSupportSSDGet(&list) == sections, "not the whole database was handed out");
    VEMOFlashCacheSupportSSDFree(list);
}

template <class Read>
Cost ReadAfresh(int sections, const Read& read) {
    UseDatabase(sections);
    read();  // the heap is then as a run of this size leaves it, not one of another
    ForgetFile();
    return CostOf(read);
}

void LookUpOurs(int number) {
    const std::string model = Model(number);
    FLASHCACHE_SSD_INFO ssd{};
    ssd.Model = model.c_str();
    ssd.Size = static_cast<uint64_t>(GiBOf(number)) * kGiB;
    Require(VEMOFlashCacheCheckSSDSupport(&ssd) == 1, "the SSD was not found");
}

bool Fits(const char* section, const std::string& model, uint64_t size) {
    const char* const bar = std::strchr(section, '|');
    if (bar == nullptr || std::strncmp(section, model.c_str(), model.size()) != 0) {
        return false;
    }
    const uint64_t capacity = std::strtoull(bar + 1, nullptr, 10) * kGiB;
    return capacity - capacity / 10 <= size && size <= capacity + capacity / 10;
}

void LookUpGlib(int number) {
    const KeyFile file = LoadKeyFile(kDatabase);
    const GlibTexts sections(g_key_file_get_groups(file.get(), nullptr));
    gchar** section = sections.get();
    while (*section != nullptr &&
           !Fits(*section, Model(number), static_cast<uint64_t>(GiBOf(number)) * kGiB)) {
        ++section;
    }
    Require(*section != nullptr, "GLib did not find the SSD");
    const GlibText since(g_key_file_get_value(file.get(), *section, kAppliance, nullptr));
    Require(since != nullptr && std::atoi(since.get()) <= kBuild, "GLib did not find the build");
}

}  // namespace

void RegisterSsdSupport() {
    constexpr int kLarge = 10'000;
    constexpr int kSmall = 100;
    Comparison lookUp;
    lookUp.name = fmt::format("ssd/check/{}", kLarge);
    lookUp.ours = [] { return ReadAfresh(kLarge, [] { LookUpOurs(kLarge - 1); }); };
    lookUp.baselineName = "GLib's GKeyFile, the same look-up";
    lookUp.baseline = [] { return ReadAfresh(kLarge, [] { LookUpGlib(kLarge - 1); }); };
    lookUp.pairs = 51;
    lookUp.lines = {{kCpu, 0.10}, {kWall, 0}};
    Register(lookUp);

    Comparison growth;
    growth.name = "ssd/list/growth";
    growth.ours = [] { return ReadAfresh(kLarge, [] { HandOut(kLarge); }); };
    growth.baselineName = fmt::format("exponent, {} to {} sections", kSmall, kLarge);
    growth.baseline = [] { return ReadAfresh(kSmall, [] { HandOut(kSmall); }); };
    growth.pairs = 51;
    growth.lines = {{kCpu, 1.10}, {kWall, 0}};
    growth.growth = double{kLarge} / kSmall;
    Register(growth);
}

}  // namespace bench
