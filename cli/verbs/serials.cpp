#include <fmt/format.h>
#include <fmt/ranges.h>

#include <memory>

#include "output/answer.h"
#include "support/consent.h"
#include "support/dry_run.h"
#include "vemoflashcache.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct SerialsOptions {
    std::string section;
    std::vector<std::string> serials;
    bool discard = false;
};

struct TextListFree {
    void operator()(VLIBC_SZLIST* list) const { VLIBCSzListFree(list); }
};
using TextList = std::unique_ptr<VLIBC_SZLIST, TextListFree>;

// The stored numbers; nothing when there is no such section.
TextList Stored(const std::string& section) {
    VLIBC_SZLIST* list = nullptr;
    const Outcome outcome =
        Attempt([&] { return VEMOFlashcacheConfigSerialListGet(section.c_str(), &list); });
    if (outcome.result < 0) {
        throw LibraryFailure(fmt::format("the serial numbers of {} could not be read", section), outcome,
                             fmt::format("vemocachectl serials set {} SERIAL...", section));
    }
    return TextList(list);
}

void GetSerials(const Context& context, const SerialsOptions& options) {
    const TextList list = Stored(options.section);
    Answer answer{"serials", Layout::kTable, {}, "", fmt::format("There is no list {}.", options.section)};
    for (int i = 0; list != nullptr; ++i) {
        const char* serial = VLIBCSzListGet(list.get(), i);
        if (serial == nullptr) {
            break;
        }
        answer.records.push_back({{{"serial", "Serial number", serial}}});
    }
    Print(answer, context.json);
}

void SetSerials(const Context& context, const SerialsOptions& options) {
    const std::string joined = fmt::format("{}", fmt::join(options.serials, ","));
    const Outcome outcome = Change(
        Attempt, [&] { return Step{"VEMOFlashcacheConfigSerialListSet", {options.section, joined}, {}}; },
        [&] { return VEMOFlashcacheConfigSerialListSet(options.section.c_str(), joined.c_str()); });
    if (outcome.result != 0) {
        throw LibraryFailure(fmt::format("the serial numbers of {} could not be stored", options.section),
                             outcome, "the old ones stay");
    }
    const Record record{{{"section", "Section", options.section},
                         {"count", "Serial numbers", std::uint64_t{options.serials.size()}}}};
    Print(One("stored", record), context.json);
}

void RequireList(const std::string& section) {
    if (Stored(section) == nullptr) {
        throw Failure{fmt::format("there is no list {}", section), "",
                      fmt::format("vemocachectl serials set {} SERIAL...", section), std::nullopt,
                      FailureKind::kNotFound};
    }
}

// An unknown list has none of them: the library would say that nothing is missing.
bool AreAllThere(const SerialsOptions& options) {
    RequireList(options.section);
    VLIBC_SZLIST* made = VLIBCSzListAlloc(static_cast<int>(options.serials.size()));
    const std::string joined = fmt::format("{}", fmt::join(options.serials, ","));
    const bool split = made != nullptr && VLIBCStrTok(joined.c_str(), ",", &made) >= 0;
    const TextList asked(made);
    if (!split) {
        throw Failure{"the serial numbers could not be compared", "out of memory", ""};
    }
    return VEMOFlashcacheConfigSerialListCheck(options.section.c_str(), asked.get()) == 0;
}

void CheckSerials(Context& context, const SerialsOptions& options) {
    const bool areAllThere = AreAllThere(options);
    const Record record{{{"section", "Section", options.section}, {"all_known", "All known", areAllThere}}};
    context.saidNo = !areAllThere;
    Print(One("check", record), context.json);
}

void RemoveSerials(const Context& context, const SerialsOptions& options) {
    RequireList(options.section);
    RequireConsent({fmt::format("remove the list of serial numbers {}", options.section), "--discard-list"},
                   options.discard, !context.json);
    const Outcome outcome = Change(
        Attempt, [&] { return Step{"VEMOFlashcacheConfigSerialListDelete", {options.section}, {}}; },
        [&] { return VEMOFlashcacheConfigSerialListDelete(options.section.c_str()); });
    if (outcome.result != 0) {
        throw LibraryFailure(fmt::format("the list {} could not be removed", options.section), outcome, "");
    }
    Print(One("removed", Record{{{"section", "Section", options.section}}}), context.json);
}

std::vector<Argument> Section(SerialsOptions& options) {
    return {{.name = "SECTION",
             .help = "the section of the list, as its users named it",
             .target = &options.section,
             .required = true,
             .check = [](const std::string& section) {
                 return section.empty() ? std::string("a section has a name") : std::string();
             }}};
}

std::string CheckSerial(const std::string& serial) {
    return serial.empty() || serial.find_first_of(", \t\r\n") != std::string::npos
               ? "a serial number has no commas and no blanks"
               : "";
}

std::vector<Argument> SectionAndSerials(SerialsOptions& options) {
    std::vector<Argument> arguments = Section(options);
    arguments.push_back({.name = "SERIAL",
                         .help = "serial numbers",
                         .target = &options.serials,
                         .required = true,
                         .check = CheckSerial});
    return arguments;
}

std::vector<Argument> SectionAndConsent(SerialsOptions& options) {
    std::vector<Argument> arguments = Section(options);
    arguments.push_back({.name = "--discard-list",
                         .help = "consent to the loss; asked for on a terminal when left out",
                         .target = &options.discard});
    return arguments;
}

}  // namespace

Verb SerialsVerb() {
    return MakeGroup(
        "serials", "Keep lists of the serial numbers of SSDs",
        {Report(MakeVerb<SerialsOptions>("get", "Show a list", "vemocachectl serials get cache_1", Section,
                                         GetSerials)),
         MakeVerb<SerialsOptions>("set", "Store a list in place of what it held",
                                  "vemocachectl serials set cache_1 S1 S2", SectionAndSerials, SetSerials),
         Question(MakeVerb<SerialsOptions>("check", "Tell whether all these are in a list",
                                           "vemocachectl serials check cache_1 S1", SectionAndSerials,
                                           CheckSerials),
                  "the list has not all of them"),
         MakeVerb<SerialsOptions>("remove", "Remove a list",
                                  "vemocachectl serials remove cache_1 --discard-list", SectionAndConsent,
                                  RemoveSerials)});
}

}  // namespace cli
