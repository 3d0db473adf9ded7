#include <ctime>

#include "doctor/doctor.h"
#include "doctor/mutes.h"
#include "metrics/families.h"
#include "output/answer.h"
#include "support/kept_file.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct MetricsOptions {
    std::string file;
    bool plain = false;
};

std::string MetricsText(Exposition exposition) {
    const Facts facts = GatherFacts();
    auto findings = Diagnose(facts);
    const auto all = findings;
    if (!ApplyMutes(findings, all, std::time(nullptr))) {
        Note("a mute that ended could not be stored as ended: it may come back");
    }
    return ToText(FamiliesOf(facts, findings), exposition);
}

void Metrics(Context& context, const MetricsOptions& options) {
    if (context.json) {
        throw Failure{"wrong usage", "metrics are text of a form of their own, and no JSON",
                      "vemocachectl metrics, or vemocachectl stats --json", std::nullopt,
                      FailureKind::kUsage};
    }
    const bool isPlain = options.plain || !options.file.empty();
    const std::string text = MetricsText(isPlain ? Exposition::kPlain : Exposition::kOpenMetrics);
    if (options.file.empty()) {
        PrintText(text);
    } else {
        WriteFileForAll(options.file, text, "the metrics");
    }
}

std::vector<Argument> DeclareMetrics(MetricsOptions& options) {
    return {
        {.name = "--output",
         .help = "write them to this file instead, as a whole or not at all, for a textfile collector: in "
                 "the plain text format that it reads",
         .target = &options.file,
         .check = WhyNoFile,
         .completion = Completion::kFile,
         .valueName = "FILE"},
        {.name = "--plain",
         .help = "print the plain text format instead of OpenMetrics",
         .target = &options.plain}};
}

}  // namespace

Verb MetricsVerb() {
    return Report(MakeVerb<MetricsOptions>(
        "metrics", "Print what is known of all caches, what is wrong with them included, as OpenMetrics text",
        "vemocachectl metrics --output /var/lib/prometheus/node-exporter/flashcache.prom", DeclareMetrics,
        Metrics));
}

}  // namespace cli
