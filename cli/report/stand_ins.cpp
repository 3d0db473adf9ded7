#include "report/stand_ins.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <functional>
#include <optional>

namespace cli {
namespace {

constexpr std::size_t kUuidLength = 36;

// Folders of /dev that are everybody's.
constexpr std::array<std::string_view, 6> kCommonFolders = {"dev",   "mapper",  "disk",
                                                            "by-id", "by-uuid", "by-path"};

// Words of the formats that a report holds. A name that is one of them is replaced within paths and pairs
// alone: anywhere else nobody could tell it from the word, and the texts would lose their form.
constexpr std::array<std::string_view, 52> kFormatWords = {
    "cache",  "cached", "dirty",    "clean",  "data",   "disk",    "ssd",       "volume",  "dev",
    "mode",   "blocks", "block",    "size",   "total",  "percent", "metadata",  "back",    "thru",
    "around", "fifo",   "lru",      "normal", "none",   "flush",   "flushing",  "loaded",  "running",
    "kernel", "error",  "errors",   "info",   "warn",   "warning", "critical",  "unknown", "list",
    "load",   "unload", "create",   "delete", "table",  "status",  "file",      "command", "report",
    "config", "state",  "capacity", "name",   "device", "linux",   "flashcache"};

bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool IsWordChar(char c) {
    return IsLetter(c) || IsDigit(c) || c == '_' || static_cast<unsigned char>(c) >= 0x80;
}

bool IsHex(char c) {
    return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// The kernel's folder of a cache's knobs is "flashcache_md3+volume_1".
bool BeginsWord(std::string_view text, std::size_t at) {
    constexpr std::string_view kKnobs = "flashcache_";
    return at == 0 || !IsWordChar(text[at - 1]) || text.substr(0, at).ends_with(kKnobs);
}

bool EndsWord(std::string_view text, std::size_t end) {
    return end >= text.size() || !IsWordChar(text[end]);
}

// Whether a word stands in a path or a pair, where only names stand.
bool IsInPath(std::string_view text, std::size_t at, std::size_t end) {
    const char before = at == 0 ? ' ' : text[at - 1];
    const char after = end < text.size() ? text[end] : ' ';
    return before == '/' || before == '+' || after == '+' ||
           (at > 0 && text.substr(0, at).ends_with("flashcache_"));
}

// Whether a text in its place is the name: digits alone are, unless they are a kernel's count.
bool IsName(std::string_view text, std::size_t at, std::string_view name) {
    const std::size_t end = at + name.size();
    if (std::find(kFormatWords.begin(), kFormatWords.end(), name) != kFormatWords.end()) {
        return IsInPath(text, at, end);
    }
    if (std::all_of(name.begin(), name.end(), IsDigit)) {
        constexpr std::string_view kAround = " \t\n\"',;[]";
        const bool isFree = at == 0 || kAround.find(text[at - 1]) != std::string_view::npos;
        return IsInPath(text, at, end) ||
               (isFree && (end >= text.size() || kAround.find(text[end]) != std::string_view::npos));
    }
    return true;
}

bool IsUuidAt(std::string_view text, std::size_t at) {
    constexpr std::array<std::size_t, 4> kHyphens = {8, 13, 18, 23};
    if (at + kUuidLength > text.size() || !BeginsWord(text, at) || !EndsWord(text, at + kUuidLength)) {
        return false;
    }
    for (std::size_t i = 0; i < kUuidLength; ++i) {
        const bool isHyphen = std::find(kHyphens.begin(), kHyphens.end(), i) != kHyphens.end();
        if (isHyphen ? text[at + i] != '-' : !IsHex(text[at + i])) {
            return false;
        }
    }
    return true;
}

std::string TextOf(StandIns::Kind kind, const std::string& name, std::uint64_t number) {
    // In the order of the kinds.
    constexpr std::array<std::string_view, 9> kWords = {"ssd",  "volume", "disk",   "group", "mount",
                                                        "host", "cache",  "serial", "id"};
    const bool isUuid = kind == StandIns::Kind::kId && name.size() == kUuidLength && IsUuidAt(name, 0);
    return isUuid ? fmt::format("00000000-0000-0000-0000-{:012}", number)
                  : fmt::format("{}-{}", kWords.at(static_cast<std::size_t>(kind)), number);
}

void ForEachPart(std::string_view path, const std::function<void(std::string_view part, bool isLast)>& take) {
    while (!path.empty()) {
        const auto slash = path.find('/');
        const std::string_view part = path.substr(0, slash);
        path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
        if (!part.empty()) {
            take(part, path.find_first_not_of('/') == std::string_view::npos);
        }
    }
}

}  // namespace

void StandIns::Add(Kind kind, const std::string& name) {
    if (!name.empty() && name != "." && name != "..") {
        StandInOf(kind, name);
    }
}

void StandIns::AddDevice(Kind kind, const std::string& path) {
    ForEachPart(path, [&](std::string_view part, bool isLast) {
        const bool isCommon =
            std::find(kCommonFolders.begin(), kCommonFolders.end(), part) != kCommonFolders.end();
        if (isLast || !isCommon) {
            StandInOf(isLast ? kind : Kind::kGroup, std::string(part));
        }
    });
}

void StandIns::AddMount(const std::string& path) {
    ForEachPart(path,
                [&](std::string_view part, bool /*isLast*/) { StandInOf(Kind::kMount, std::string(part)); });
    if (path.size() > 1 && std::find(mounts_.begin(), mounts_.end(), path) == mounts_.end()) {
        mounts_.push_back(path);
    }
}

const std::string& StandIns::StandInOf(Kind kind, const std::string& name) {
    const auto known = standIns_.find(name);
    if (known != standIns_.end()) {
        return known->second;
    }
    if (std::find(lengths_.begin(), lengths_.end(), name.size()) == lengths_.end()) {
        lengths_.push_back(name.size());
        std::sort(lengths_.begin(), lengths_.end(), std::greater<>());
    }
    return standIns_.emplace(name, TextOf(kind, name, ++used_[kind])).first->second;
}

// The length of the longest name at this place; 0: there is none.
std::size_t StandIns::NameAt(std::string_view text, std::size_t at) const {
    if (!BeginsWord(text, at)) {
        return 0;
    }
    for (const std::size_t length : lengths_) {
        if (at + length > text.size() || !EndsWord(text, at + length)) {
            continue;
        }
        const std::string_view name = text.substr(at, length);
        if (standIns_.contains(name) && IsName(text, at, name)) {
            return length;
        }
    }
    return 0;
}

// What lies below a mount, up to what ends a path in our texts; its length, 0 where no such path begins.
std::size_t StandIns::ReplaceFile(std::string_view text, std::size_t at, std::string& result) {
    if (text[at] != '/' || (at > 0 && IsWordChar(text[at - 1]))) {
        return 0;
    }
    for (const auto& mount : mounts_) {
        const std::size_t start = at + mount.size();
        if (!text.substr(at).starts_with(mount) || start + 1 >= text.size() || text[start] != '/') {
            continue;
        }
        // A line that begins with the path has nothing else, as the list of pinned files.
        const bool isLine = at == 0 || text[at - 1] == '\n';
        const auto end = std::min(text.find_first_of(isLine ? "\n" : "\n\"') ,;", start + 1), text.size());
        if (end == start + 1) {
            continue;
        }
        const std::string file(text.substr(start + 1, end - start - 1));
        const auto& standIn = files_.emplace(file, fmt::format("file-{}", files_.size() + 1)).first->second;
        result += Replace(mount) + "/" + standIn;
        return end - at;
    }
    return 0;
}

std::string StandIns::Replace(std::string_view text) {
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t length = NameAt(text, at);
        if (length > 0) {
            result += standIns_.find(text.substr(at, length))->second;
        } else if (IsUuidAt(text, at)) {
            length = kUuidLength;
            result += StandInOf(Kind::kId, std::string(text.substr(at, length)));
        } else {
            length = ReplaceFile(text, at, result);
        }
        if (length == 0) {
            length = 1;
            result += text[at];
        }
        at += length;
    }
    return result;
}

}  // namespace cli
