#include <fmt/format.h>

#include "caches/kernel_state.h"
#include "output/answer.h"
#include "support/consent.h"
#include "support/dry_run.h"
#include "support/names.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct AttributeOptions {
    std::string cache;
    std::string attribute;
    bool ignoreWriteErrors = false;
};

void TellAttribute(const Context& context, const Cache& cache, const std::string& headline) {
    const Record record{
        {{"name", "Name", cache.Name()}, {"attribute", "Attribute", AttributeText(AttributeOf(cache))}}};
    Print(One("attribute", record, headline), context.json);
}

void GetAttribute(Context& context, const AttributeOptions& options) {
    Inventory inventory = TakeInventory();
    TellAttribute(context, FindWithPair(inventory, options.cache), "");
}

void SetAttribute(Context& context, const AttributeOptions& options) {
    Inventory inventory = TakeInventory();
    const Cache& cache = FindWithPair(inventory, options.cache);
    const FLASHCACHE_ATTRIBUTE attribute = kAttributes.at(options.attribute);
    if (attribute == FLASHCACHE_ATTRIBUTE_FORCE_REMOVE) {
        RequireConsent(
            {fmt::format(
                 "let flushes of {} go on past dirty blocks that its volume {} refuses: each flush gives "
                 "them up, and they are LOST, with or without a deletion",
                 cache.Name(), cache.Volume()),
             "--ignore-write-errors"},
            options.ignoreWriteErrors, !context.json);
    }
    const Outcome outcome = Change(
        Attempt,
        [&] {
            return Step{"VEMOFlashCacheAttributeSet", {cache.Ssd(), cache.Volume(), options.attribute}, {}};
        },
        [&] { return VEMOFlashCacheAttributeSet(cache.Ssd().c_str(), cache.Volume().c_str(), attribute); });
    if (outcome.result != 0) {
        throw LibraryFailure(fmt::format("the attribute of {} could not be set", cache.Name()), outcome, "");
    }
    TellAttribute(context, cache, fmt::format("The attribute of {} was set.", cache.Name()));
}

std::vector<Argument> DeclareSetAttribute(AttributeOptions& options) {
    return {CacheArgument(options.cache),
            {.name = "ATTRIBUTE",
             .help = "none: failed write-backs end a flush; force-remove: the blocks are lost and it goes on",
             .target = &options.attribute,
             .required = true,
             .choices = NamesOf(kAttributes)},
            {.name = "--ignore-write-errors",
             .help = "consent to force-remove; asked for on a terminal when left out",
             .target = &options.ignoreWriteErrors}};
}

}  // namespace

Verb AttributeVerb() {
    return MakeGroup("attribute", "Read or set whether flushes give up the blocks of failed write-backs",
                     {Report(MakeVerb<AttributeOptions>(
                          "get", "Show the attribute", "vemocachectl attribute get cachedev_0",
                          [](AttributeOptions& options) -> std::vector<Argument> {
                              return {CacheArgument(options.cache)};
                          },
                          GetAttribute)),
                      MakeVerb<AttributeOptions>(
                          "set", "Set the attribute",
                          "vemocachectl attribute set cachedev_0 force-remove --ignore-write-errors",
                          DeclareSetAttribute, SetAttribute)});
}

}  // namespace cli
