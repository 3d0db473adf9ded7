#include <fmt/format.h>

#include <memory>

#include "caches/programs.h"
#include "output/answer.h"
#include "support/dry_run.h"
#include "vemoflashcache.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct NoSsdOptions {};

struct CheckOptions {
    std::string model;
    ByteSize size;
};

struct SupportListFree {
    void operator()(FLASHCACHE_SUPPORT_SSD_LIST* list) const { VEMOFlashCacheSupportSSDFree(list); }
};
using SupportList = std::unique_ptr<FLASHCACHE_SUPPORT_SSD_LIST, SupportListFree>;

void CheckSsd(Context& context, const CheckOptions& options) {
    const FLASHCACHE_SSD_INFO ssd{options.model.c_str(), options.size.bytes};
    const auto supported = YesOrNo(Attempt([&] { return VEMOFlashCacheCheckSSDSupport(&ssd); }));
    const Record record{{{"model", "Model", options.model},
                         {"size_bytes", "Size", options.size.bytes, Format::kBytes},
                         {"supported", "Supported here", KnownFlag(supported)}}};
    context.saidNo = supported == false;
    context.failed = !supported;
    Print(One("ssd", record), context.json);
}

Value TextOrNone(const char* text) {
    return text == nullptr ? Value() : KnownText(text);
}

Record DescribeSsd(const FLASHCACHE_SUPPORT_SSD& ssd) {
    const auto supported = YesOrNo(Attempt([&] { return VEMOFlashCacheIsSSDSupport(ssd.Name); }));
    Record record{{{"name", "Model|GiB", TextOrNone(ssd.Name)},
                   {"supported", "Here", KnownFlag(supported)},
                   {"brand", "Brand", TextOrNone(ssd.Brand)},
                   {"size", "Size", TextOrNone(ssd.Size)},
                   {"since", "Since", TextOrNone(ssd.Since)},
                   {"support_models", "Appliances", TextOrNone(ssd.SupportModels)}}};
    MayGiveWay(record, {"support_models", "since", "size", "brand"});
    return record;
}

void ListSsds(const Context& context, const NoSsdOptions& /*options*/) {
    FLASHCACHE_SUPPORT_SSD_LIST* list = nullptr;
    const Outcome outcome = Attempt([&] { return VEMOFlashCacheSupportSSDGet(&list); });
    const SupportList owner(list);
    if (outcome.result < 0) {
        throw LibraryFailure("the SSD database could not be read", outcome, "vemocachectl ssd update");
    }
    Answer answer{
        "ssds", Layout::kTable, {}, "", "There is no SSD database: vemocachectl ssd update fetches it."};
    for (const auto* node = list; node != nullptr; node = node->Next) {
        answer.records.push_back(DescribeSsd(*node->SSD));
    }
    Print(answer, context.json);
}

void Update(const Context& context, const NoSsdOptions& /*options*/) {
    if (!context.json && !IsDryRun()) {
        Note("asking the update server; this may take a while");
    }
    const Outcome outcome = Change(
        Attempt, [] { return Step{"VEMOFlashCacheSupportSSDUpdate", {}, UpdatingSsds()}; },
        [] { return VEMOFlashCacheSupportSSDUpdate(); });
    if (outcome.result != 0) {
        throw LibraryFailure("the SSD database was not updated, the old one stays", outcome,
                             "see that the address in /etc.defaults/vemoinfo.conf (support_ssd_update_site) "
                             "can be reached, and try again");
    }
    FLASHCACHE_SUPPORT_SSD_LIST* list = nullptr;
    const int count = VEMOFlashCacheSupportSSDGet(&list);
    const SupportList owner(list);
    const Record record{{{"count", "SSDs in it", count < 0 ? Value() : Value(std::int64_t{count})}}};
    Print(One("database", record, "The SSD database was updated."), context.json);
}

std::vector<Argument> DeclareCheck(CheckOptions& options) {
    return {{.name = "MODEL",
             .help = "the SSD's model",
             .target = &options.model,
             .required = true,
             .check =
                 [](const std::string& model) {
                     return model.empty() ? std::string("an SSD has a model") : std::string();
                 }},
            {.name = "SIZE",
             .help = "its capacity, such as 480G",
             .target = &options.size,
             .required = true,
             .check = [](const std::string& bytes) {
                 return bytes == "0" ? std::string("an SSD has a size") : std::string();
             }}};
}

}  // namespace

Verb SsdVerb() {
    return MakeGroup(
        "ssd", "Check SSDs against the compatibility database",
        {Question(MakeVerb<CheckOptions>("check", "Tell whether an SSD is supported on this appliance",
                                         "vemocachectl ssd check QM-S400 480G", DeclareCheck, CheckSsd),
                  "the SSD is not supported here"),
         Report(MakeVerb<NoSsdOptions>(
             "list", "Show the database", "vemocachectl ssd list",
             [](NoSsdOptions&) { return NoArguments(); }, ListSsds)),
         MakeVerb<NoSsdOptions>(
             "update", "Fetch a new database from the update server", "vemocachectl ssd update",
             [](NoSsdOptions&) { return NoArguments(); }, Update)});
}

}  // namespace cli
