#include <fmt/format.h>
#include <fmt/ranges.h>

#include <memory>

#include "output/answer.h"
#include "support/consent.h"
#include "vemoflashcache.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct Options {
    std::string section;
    std::vector<std::string> serials;
    bool discard = false;
};

constexpr const char* kSectionHelp = "the section of the list, as its users named it";

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
                             "vemocachectl serials set writes them anew");
    }
    return TextList(list);
}

void Get(const Context& context, const Options& options) {
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

void Set(const Context& context, const Options& options) {
    const std::string joined = fmt::format("{}", fmt::join(options.serials, ","));
    const Outcome outcome =
        Attempt([&] { return VEMOFlashcacheConfigSerialListSet(options.section.c_str(), joined.c_str()); });
    if (outcome.result != 0) {
        throw LibraryFailure(fmt::format("the serial numbers of {} could not be stored", options.section),
                             outcome, "the old ones stay");
    }
    const Record record{{{"section", "Section", options.section},
                         {"count", "Serial numbers", std::uint64_t{options.serials.size()}}}};
    Print(One("stored", record), context.json);
}

// An unknown list has none of them: the library would say that nothing is missing.
bool AreAllThere(const Options& options) {
    const TextList stored = Stored(options.section);
    if (stored == nullptr) {
        throw Failure{fmt::format("there is no list {}", options.section), "",
                      "vemocachectl serials set makes it"};
    }
    VLIBC_SZLIST* made = VLIBCSzListAlloc(static_cast<int>(options.serials.size()));
    const std::string joined = fmt::format("{}", fmt::join(options.serials, ","));
    const bool split = made != nullptr && VLIBCStrTok(joined.c_str(), ",", &made) >= 0;
    const TextList asked(made);
    if (!split) {
        throw Failure{"the serial numbers could not be compared", "out of memory", ""};
    }
    return VEMOFlashcacheConfigSerialListCheck(options.section.c_str(), asked.get()) == 0;
}

void Check(const Context& context, const Options& options) {
    const Record record{
        {{"section", "Section", options.section}, {"all_known", "All known", AreAllThere(options)}}};
    Print(One("check", record), context.json);
}

void Remove(const Context& context, const Options& options) {
    RequireConsent({fmt::format("remove the list of serial numbers {}", options.section), "--discard-list"},
                   options.discard, !context.json);
    const Outcome outcome =
        Attempt([&] { return VEMOFlashcacheConfigSerialListDelete(options.section.c_str()); });
    if (outcome.result != 0) {
        throw LibraryFailure(fmt::format("the list {} could not be removed", options.section), outcome, "");
    }
    Print(One("removed", Record{{{"section", "Section", options.section}}}), context.json);
}

void Section(CLI::App& verb, Options& options) {
    verb.add_option("SECTION", options.section, kSectionHelp)->required();
}

std::string CheckSerial(const std::string& serial) {
    return serial.empty() || serial.find_first_of(", \t\r\n") != std::string::npos
               ? "a serial number has no commas and no blanks"
               : "";
}

void SectionAndSerials(CLI::App& verb, Options& options) {
    Section(verb, options);
    verb.add_option("SERIAL", options.serials, "serial numbers")->required()->check(CheckSerial);
}

}  // namespace

void AddSerials(CLI::App& app, Context& context) {
    CLI::App* serials = app.add_subcommand("serials", "Keep lists of the serial numbers of SSDs");
    serials->require_subcommand(1);
    AddVerb<Options>(*serials, context, "get", "Show a list", "vemocachectl serials get cache_1", Section,
                     Get);
    AddVerb<Options>(*serials, context, "set", "Store a list in place of what it held",
                     "vemocachectl serials set cache_1 S1 S2", SectionAndSerials, Set);
    AddVerb<Options>(*serials, context, "check", "Tell whether all these are in a list",
                     "vemocachectl serials check cache_1 S1", SectionAndSerials, Check);
    AddVerb<Options>(
        *serials, context, "remove", "Remove a list", "vemocachectl serials remove cache_1 --discard-list",
        [](CLI::App& verb, Options& options) {
            Section(verb, options);
            verb.add_flag("--discard-list", options.discard,
                          "consent to the loss; asked for on a terminal when left out");
        },
        Remove);
}

}  // namespace cli
