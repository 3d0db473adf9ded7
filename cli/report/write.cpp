#include "report/write.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "report/document.h"
#include "report/known_names.h"
#include "report/page.h"
#include "report/tar.h"

namespace cli {
namespace {

constexpr const char* kFolder = "vemocachectl-report";

// Where an item lies in the archive.
std::string PlaceOf(const ReportItem& item, StandIns* standIns) {
    std::string name = standIns == nullptr ? item.name : standIns->Replace(item.name);
    if (!item.isCommand) {
        return fmt::format("{}/files{}", kFolder, name);
    }
    std::replace_if(name.begin(), name.end(), [](char c) { return c == ' ' || c == '/'; }, '-');
    return fmt::format("{}/commands/{}.txt", kFolder, name);
}

}  // namespace

std::string ArchiveOf(const Collected& all, bool isPlain) {
    std::optional<StandIns> standIns;
    if (!isPlain) {
        standIns = StandInsFor(all);
    }
    StandIns* const used = standIns ? &*standIns : nullptr;
    const std::string document = DocumentOf(all, used);
    TarWriter archive(all.time);
    archive.Add(fmt::format("{}/report.json", kFolder), document);
    archive.Add(fmt::format("{}/index.html", kFolder), PageOf(document));
    const std::string log = fmt::format("{}\n", fmt::join(all.log, "\n"));
    archive.Add(fmt::format("{}/log.txt", kFolder), used == nullptr ? log : used->Replace(log));
    for (const auto& item : all.items) {
        if (item.text.empty()) {
            continue;
        }
        try {
            archive.Add(PlaceOf(item, used), used == nullptr ? item.text : used->Replace(item.text));
        } catch (const std::invalid_argument&) {
            continue;  // its text stands in report.json all the same
        }
    }
    return Gzipped(archive.Take());
}

}  // namespace cli
