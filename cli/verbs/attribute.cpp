#include <fmt/format.h>

#include "caches/kernel_state.h"
#include "output/answer.h"
#include "support/consent.h"
#include "support/names.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct Options {
    std::string cache;
    std::string attribute;
    bool ignoreWriteErrors = false;
};

void Tell(const Context& context, const Cache& cache, const std::string& headline) {
    const Record record{
        {{"name", "Name", cache.Name()}, {"attribute", "Attribute", AttributeText(AttributeOf(cache))}}};
    Print(One("attribute", record, headline), context.json);
}

void Get(Context& context, const Options& options) {
    Inventory inventory = TakeInventory();
    Tell(context, FindWithPair(inventory, options.cache), "");
}

void Set(Context& context, const Options& options) {
    Inventory inventory = TakeInventory();
    const Cache& cache = FindWithPair(inventory, options.cache);
    const FLASHCACHE_ATTRIBUTE attribute = kAttributes.at(options.attribute);
    if (attribute == FLASHCACHE_ATTRIBUTE_FORCE_REMOVE) {
        RequireConsent(
            {fmt::format("let flushes of {} go on past blocks that its volume {} refuses; a deletion then "
                         "loses these blocks",
                         cache.Name(), cache.Volume()),
             "--ignore-write-errors"},
            options.ignoreWriteErrors, !context.json);
    }
    const Outcome outcome = Attempt(
        [&] { return VEMOFlashCacheAttributeSet(cache.Ssd().c_str(), cache.Volume().c_str(), attribute); });
    if (outcome.result != 0) {
        throw LibraryFailure(fmt::format("the attribute of {} could not be set", cache.Name()), outcome, "");
    }
    Tell(context, cache, fmt::format("The attribute of {} was set.", cache.Name()));
}

}  // namespace

void AddAttribute(CLI::App& app, Context& context) {
    CLI::App* attribute =
        app.add_subcommand("attribute", "Read or set whether flushes go on past failed write-backs");
    attribute->require_subcommand(1);
    AddVerb<Options>(
        *attribute, context, "get", "Show the attribute", "vemocachectl attribute get cachedev_0",
        [](CLI::App& verb, Options& options) {
            verb.add_option("CACHE", options.cache, kCacheHelp)->required();
        },
        Get);
    AddVerb<Options>(
        *attribute, context, "set", "Set the attribute",
        "vemocachectl attribute set cachedev_0 force-remove --ignore-write-errors",
        [](CLI::App& verb, Options& options) {
            verb.add_option("CACHE", options.cache, kCacheHelp)->required();
            verb.add_option("ATTRIBUTE", options.attribute,
                            "none: failed write-backs end a flush; force-remove: they do not")
                ->required()
                ->check(CLI::IsMember(NamesOf(kAttributes)));
            verb.add_flag("--ignore-write-errors", options.ignoreWriteErrors,
                          "consent to force-remove; asked for on a terminal when left out");
        },
        Set);
}

}  // namespace cli
