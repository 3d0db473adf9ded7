#include "doctor/mutes.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>

#include "support/dry_run.h"
#include "support/failure.h"
#include "support/kept_file.h"
#include "support/lock_file.h"

namespace cli {
namespace {

constexpr const char* kMutesPath = "/usr/vemo/etc/vemocachectl/doctor.mutes";
constexpr const char* kMutesLock = "/run/lock/vemocachectl-doctor.lock";

// From reading the mutes to writing them back.
class MutesLock {
  public:
    MutesLock() : file_(OpenLockFile(kMutesLock)) {
        if (flock(file_.Get(), LOCK_EX) != 0) {
            throw Failure{fmt::format("the lock file {} cannot be locked", kMutesLock), std::strerror(errno),
                          ""};
        }
    }

  private:
    base::UniqueFd file_;
};

// A line such as "VFC-D062\t1767225600\twarning\t1\tmd3+volume_1"; the name of the cache may hold anything.
std::optional<Mute> MuteIn(const std::string& line) {
    std::istringstream fields(line);
    Mute mute;
    std::string severity;
    if (!(fields >> mute.code >> mute.until >> severity >> mute.count) || fields.get() != '\t') {
        return std::nullopt;
    }
    std::getline(fields, mute.cache);
    const auto known = SeverityNamed(severity);
    mute.severity = known.value_or(Severity::kInfo);
    return known ? std::optional(mute) : std::nullopt;
}

void WriteMutes(const std::vector<Mute>& mutes) {
    if (IsDryRun()) {
        NoteStep({"write", {kMutesPath}, {}});
        return;
    }
    std::string text;
    for (const auto& mute : mutes) {
        text += fmt::format("{}\t{}\t{}\t{}\t{}\n", mute.code, mute.until, SeverityText(mute.severity),
                            mute.count, mute.cache);
    }
    if (!WriteKeptFile(kMutesPath, text)) {
        throw Failure{"the mutes could not be stored", fmt::format("{} cannot be written", kMutesPath),
                      "df -h /usr/vemo/etc"};
    }
}

bool IsMutedBy(const Finding& finding, const Mute& mute) {
    return finding.code == mute.code &&
           (mute.cache.empty() ||
            std::find(finding.caches.begin(), finding.caches.end(), mute.cache) != finding.caches.end());
}

// What the findings have of it now, as a mute holds it; a count of 0: nothing.
Mute Measured(const Mute& mute, const std::vector<Finding>& findings) {
    Mute now = mute;
    now.severity = Severity::kInfo;
    now.count = 0;
    for (const auto& finding : findings) {
        if (IsMutedBy(finding, mute)) {
            now.severity = std::max(now.severity, SeverityOf(finding));
            now.count += finding.count;
        }
    }
    return now;
}

bool HasGrown(const Mute& mute, const std::vector<Finding>& findings) {
    const Mute now = Measured(mute, findings);
    return now.count > mute.count || (now.count > 0 && now.severity > mute.severity);
}

bool IsSame(const Mute& mute, const std::string& code, const std::string& cache) {
    return mute.code == code && mute.cache == cache;
}

// Whoever lays down the mutes anew does so under the lock, by what is in the file then.
bool EndGrown(const std::vector<Finding>& findings, std::int64_t now) {
    try {
        const MutesLock lock;
        auto mutes = ReadMutes(now);
        std::erase_if(mutes, [&](const Mute& mute) { return HasGrown(mute, findings); });
        WriteMutes(mutes);
        return true;
    } catch (const Failure&) {
        return false;
    }
}

}  // namespace

std::string NameOf(const Mute& mute) {
    return mute.cache.empty() ? mute.code : mute.code + ":" + mute.cache;
}

std::vector<Mute> ReadMutes(std::int64_t now) {
    std::vector<Mute> mutes;
    std::ifstream file(kMutesPath);
    for (std::string line; std::getline(file, line);) {
        const auto mute = MuteIn(line);
        if (mute && mute->until > now) {
            mutes.push_back(*mute);
        }
    }
    if (file.bad()) {
        throw Failure{"the mutes cannot be read", fmt::format("{} cannot be read", kMutesPath), ""};
    }
    return mutes;
}

bool ApplyMutes(std::vector<Finding>& shown, const std::vector<Finding>& all, std::int64_t now) {
    auto mutes = ReadMutes(now);
    const auto ended = std::erase_if(mutes, [&](const Mute& mute) { return HasGrown(mute, all); });
    for (auto& finding : shown) {
        for (const auto& mute : mutes) {
            if (IsMutedBy(finding, mute)) {
                finding.mutedUntil = std::max(finding.mutedUntil.value_or(0), mute.until);
            }
        }
    }
    return ended == 0 || EndGrown(all, now);
}

Mute MuteFindings(Mute mute, const std::vector<Finding>& findings, std::int64_t now) {
    const Mute measured = Measured(mute, findings);
    if (measured.count == 0) {
        throw Failure{fmt::format("there is no finding {} to mute", NameOf(mute)),
                      "a mute is of what is found now, and ends when that grows worse", "vemocachectl doctor",
                      std::nullopt, FailureKind::kNotFound};
    }
    const MutesLock lock;
    auto mutes = ReadMutes(now);
    std::erase_if(mutes, [&](const Mute& one) { return IsSame(one, mute.code, mute.cache); });
    mutes.push_back(measured);
    WriteMutes(mutes);
    return measured;
}

void Unmute(const std::string& code, const std::string& cache, std::int64_t now) {
    const MutesLock lock;
    auto mutes = ReadMutes(now);
    if (std::erase_if(mutes, [&](const Mute& one) { return IsSame(one, code, cache); }) == 0) {
        throw Failure{fmt::format("there is no mute {}", NameOf({code, cache})), "",
                      "vemocachectl doctor --mutes", std::nullopt, FailureKind::kNotFound};
    }
    WriteMutes(mutes);
}

std::string TimeText(std::int64_t time) {
    return fmt::format("{:%F %H:%M}", fmt::localtime(static_cast<std::time_t>(time)));
}

std::string IsoTime(std::int64_t time) {
    return fmt::format("{:%FT%T%z}", fmt::localtime(static_cast<std::time_t>(time)));
}

}  // namespace cli
