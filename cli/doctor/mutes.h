// Findings that the admin does not want to hear of for a while. A mute ends by itself: with its time, or when
// what it mutes grows worse.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "doctor/finding.h"

namespace cli {

struct Mute {
    std::string code;
    std::string cache;       // empty: of any
    std::int64_t until = 0;  // seconds since 1970
    // As it was when it was muted: the worst of what is muted, and how much there was of all of it.
    Severity severity = Severity::kInfo;
    std::uint64_t count = 0;
};

// What a user calls it: "CODE" or "CODE:CACHE".
std::string NameOf(const Mute& mute);

// Those in force at this time. Throws a Failure when they cannot be read.
std::vector<Mute> ReadMutes(std::int64_t now);

// Marks those of `shown` that are muted, and ends the mutes of what has grown worse by `all`, the findings of
// all checks; false when an end could not be stored, so that the mute may come back.
bool ApplyMutes(std::vector<Finding>& shown, const std::vector<Finding>& all, std::int64_t now);

// Mutes what these findings tell of it. Throws a Failure when none does, or when that cannot be stored.
Mute MuteFindings(Mute mute, const std::vector<Finding>& findings, std::int64_t now);

// Throws a Failure when there is no such mute, or when that cannot be stored.
void Unmute(const std::string& code, const std::string& cache, std::int64_t now);

// "2026-05-01 12:00" and, for programs, "2026-05-01T12:00:00+0000", local time.
std::string TimeText(std::int64_t time);
std::string IsoTime(std::int64_t time);

}  // namespace cli
