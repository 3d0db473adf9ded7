#include "caches/unload_record.h"

#include <fcntl.h>
#include <fmt/chrono.h>
#include <fmt/format.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <optional>

#include "base/unique_fd.h"
#include "output/answer.h"
#include "support/device.h"
#include "support/dry_run.h"
#include "support/kept_file.h"
#include "support/samples.h"

namespace cli {
namespace {

std::string RecordPathOf(const Cache& cache) {
    return fmt::format("/usr/vemo/etc/vemocachectl/{}.unloaded", KernelName(cache.Ssd(), cache.Volume()));
}

// A number that differs with the size, both ends and samples (FNV-1a, 64 bits).
std::optional<std::string> Fingerprint(const std::string& path) {
    constexpr std::uint64_t kSamples = 32;
    constexpr std::uint64_t kPrime = 0x100000001b3;
    const auto size = DeviceSize(path);
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): open has no other form.
    const base::UniqueFd device(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!device || !size) {
        return std::nullopt;
    }
    std::uint64_t hash = 0xcbf29ce484222325;
    const bool isRead = VisitSamples(device.Get(), *size, kSamples, [&](std::string_view bytes) {
        for (const char byte : bytes) {
            hash = (hash ^ static_cast<unsigned char>(byte)) * kPrime;
        }
        return true;
    });
    return isRead ? std::optional(fmt::format("{:016x}", hash ^ *size)) : std::nullopt;
}

// The lines of a record: both devices, what they looked like, and when.
struct Kept {
    std::string ssd;
    std::string volume;
    std::string ssdFingerprint;
    std::string volumeFingerprint;
    std::string when;
};

Kept ReadRecord(const std::string& path) {
    Kept kept;
    std::ifstream file(path);
    for (std::string* line :
         {&kept.ssd, &kept.volume, &kept.ssdFingerprint, &kept.volumeFingerprint, &kept.when}) {
        std::getline(file, *line);
    }
    return kept;
}

}  // namespace

void RecordUnload(const Cache& cache) {
    if (IsDryRun()) {
        NoteStep({"write", {RecordPathOf(cache)}, {}});
        return;
    }
    const auto ssd = Fingerprint(cache.Ssd());
    const auto volume = Fingerprint(cache.Volume());
    const std::string now = fmt::format("{:%F %T}", fmt::localtime(std::time(nullptr)));
    if (!ssd || !volume ||
        !WriteKeptFile(RecordPathOf(cache), fmt::format("{}\n{}\n{}\n{}\n{}\n", cache.Ssd(), cache.Volume(),
                                                        *ssd, *volume, now))) {
        ForgetUnload(cache);
        Note(fmt::format(
            "what the volume {} looks like could not be kept: loading will not see whether it was "
            "written meanwhile",
            cache.Volume()));
    }
}

void ForgetUnload(const Cache& cache) {
    if (IsDryRun()) {
        if (std::filesystem::exists(RecordPathOf(cache))) {
            NoteStep({"remove", {RecordPathOf(cache)}, {}});
        }
        return;
    }
    std::remove(RecordPathOf(cache).c_str());
}

SinceUnload LookSinceUnload(const Cache& cache) {
    const Kept kept = ReadRecord(RecordPathOf(cache));
    const bool isOurs = kept.ssd == cache.Ssd() && kept.volume == cache.Volume() && !kept.when.empty();
    // An SSD that changed was in use since, and whoever used it kept no record.
    const bool isLast = isOurs && Fingerprint(cache.Ssd()) == kept.ssdFingerprint;
    const auto now = isLast ? Fingerprint(cache.Volume()) : std::nullopt;
    if (!now) {
        return {};
    }
    const bool isSame = *now == kept.volumeFingerprint;
    return {isSame ? SinceUnload::Volume::kSame : SinceUnload::Volume::kWritten, kept.when};
}

}  // namespace cli
