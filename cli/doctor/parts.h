// What checks say again and again.
#pragma once

#include <fmt/format.h>

#include <string>

#include "doctor/facts.h"
#include "doctor/finding.h"
#include "support/quoted.h"

namespace cli {

// "vemocachectl VERB CACHE", to be pasted.
inline std::string CommandOn(const std::string& verb, const CacheFacts& cache, const std::string& rest = "") {
    return fmt::format("vemocachectl {} {}{}", verb, Quoted(cache.name), rest.empty() ? "" : " " + rest);
}

inline Field Number(const std::string& key, const std::string& label,
                    const std::optional<std::uint64_t>& number, Format format = Format::kPlain) {
    return {key, label, number ? Value(*number) : Value(), format};
}

inline Field DeviceField(const std::string& key, const std::string& label, const std::string& path) {
    return {key, label, KnownText(path), Format::kDevice};
}

// The blocks that lie on the SSD alone.
inline std::vector<Field> DirtyFields(const CacheFacts& cache) {
    const auto dirty = cache.DirtyBlocks();
    return {Number("dirty_blocks", "Dirty blocks", dirty),
            {"dirty_bytes", "Dirty", BytesOf(dirty, cache.BlockSize()), Format::kBytes}};
}

// "20 dirty blocks", "1 dirty block", "an unknown number of dirty blocks".
inline std::string DirtyText(const CacheFacts& cache) {
    const auto dirty = cache.DirtyBlocks();
    return dirty ? fmt::format("{} dirty block{}", *dirty, *dirty == 1 ? "" : "s")
                 : "an unknown number of dirty blocks";
}

// How to give up what an SSD holds: in words alone, since it destroys.
inline std::string GiveUpText(const CacheFacts& cache) {
    return fmt::format(
        "If what lies on the SSD alone may be lost: \"vemocachectl wipe {} --discard-metadata\" and "
        "\"vemocachectl config remove {} --forget-cache\" end the cache.",
        Quoted(cache.ssd), Quoted(cache.name));
}

}  // namespace cli
