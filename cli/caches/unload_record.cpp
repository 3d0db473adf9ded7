#include "caches/unload_record.h"

#include <fcntl.h>
#include <fmt/chrono.h>
#include <fmt/format.h>

#include <cstdio>
#include <ctime>
#include <fstream>
#include <optional>

#include "common/handle.h"
#include "output/answer.h"
#include "support/device.h"
#include "support/kept_file.h"
#include "support/samples.h"

namespace cli {
namespace {

std::string PathOf(const Cache& cache) {
    return fmt::format("/usr/vemo/etc/vemocachectl/{}.unloaded", KernelName(cache.Ssd(), cache.Volume()));
}

// A number that differs with the size, both ends and samples (FNV-1a, 64 bits).
std::optional<std::uint64_t> Fingerprint(const std::string& volume) {
    constexpr std::uint64_t kSamples = 32;
    constexpr std::uint64_t kPrime = 0x100000001b3;
    const auto size = DeviceSize(volume);
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): open has no other form.
    const flashcache::Descriptor device(open(volume.c_str(), O_RDONLY | O_CLOEXEC));
    if (!device || !size) {
        return std::nullopt;
    }
    std::uint64_t hash = 0xcbf29ce484222325;
    const bool isRead = VisitSamples(device.get(), *size, kSamples, [&](std::string_view bytes) {
        for (const char byte : bytes) {
            hash = (hash ^ static_cast<unsigned char>(byte)) * kPrime;
        }
        return true;
    });
    return isRead ? std::optional(hash ^ *size) : std::nullopt;
}

// The lines of a record: the devices, the fingerprint, the time.
struct Kept {
    std::string ssd;
    std::string volume;
    std::string fingerprint;
    std::string when;
};

Kept ReadRecord(const std::string& path) {
    Kept kept;
    std::ifstream file(path);
    for (std::string* line : {&kept.ssd, &kept.volume, &kept.fingerprint, &kept.when}) {
        std::getline(file, *line);
    }
    return kept;
}

std::string TextOf(std::uint64_t fingerprint) {
    return fmt::format("{:016x}", fingerprint);
}

}  // namespace

void RecordUnload(const Cache& cache) {
    const auto fingerprint = Fingerprint(cache.Volume());
    const std::string now = fmt::format("{:%F %T}", fmt::localtime(std::time(nullptr)));
    if (!fingerprint ||
        !WriteKeptFile(PathOf(cache), fmt::format("{}\n{}\n{}\n{}\n", cache.Ssd(), cache.Volume(),
                                                  TextOf(*fingerprint), now))) {
        ForgetUnload(cache);
        Note(fmt::format(
            "what the volume {} looks like could not be kept: loading will not see whether it was "
            "written meanwhile",
            cache.Volume()));
    }
}

void ForgetUnload(const Cache& cache) {
    std::remove(PathOf(cache).c_str());
}

SinceUnload LookSinceUnload(const Cache& cache) {
    const Kept kept = ReadRecord(PathOf(cache));
    const bool isOurs = kept.ssd == cache.Ssd() && kept.volume == cache.Volume() && !kept.when.empty();
    const auto now = isOurs ? Fingerprint(cache.Volume()) : std::nullopt;
    if (!now) {
        return {};
    }
    const bool isSame = TextOf(*now) == kept.fingerprint;
    return {isSame ? SinceUnload::Volume::kSame : SinceUnload::Volume::kWritten, kept.when};
}

}  // namespace cli
