#include <fmt/format.h>

#include "doctor/describe_finding.h"
#include "output/answer.h"
#include "output/step_line.h"
#include "report/collect.h"
#include "report/new_file.h"
#include "report/write.h"
#include "stats/show.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct ReportOptions {
    std::string file;
    std::string seconds = "3";
    std::string patience = "20";
    bool plain = false;
    bool force = false;
};

std::uint64_t CountUnread(const Collected& all) {
    std::uint64_t count = all.unmade.size();
    for (const auto& item : all.items) {
        count += item.isThere && !item.error.empty() ? 1U : 0U;
    }
    return count;
}

void MakeReport(Context& context, const ReportOptions& options) {
    NewFile file(options.file, options.force);
    // The file will be there when the answer is given.
    Form form = context.form;
    form.isTooLate = true;
    SetForm(form);
    Collected all;
    {
        const StepLine line(context.json);
        all = Collect({SecondsIn(options.seconds).count(), SecondsIn(options.patience).count()},
                      [&](const std::string& step, double share) { line.Show("reading: " + step, share); });
    }
    const std::string archive = ArchiveOf(all, options.plain);
    file.Write(archive);
    for (const auto& part : all.unmade) {
        Note(fmt::format("the report lacks a part: {}", part));
    }
    const Totals totals = TotalsOf(all.findings);
    const Record record{{{"file", "File", options.file},
                         {"bytes", "Size", std::uint64_t{archive.size()}, Format::kBytes},
                         {"names_replaced", "Names replaced", !options.plain},
                         {"caches", "Caches", std::uint64_t{all.facts.caches.size()}},
                         {"critical", "Critical", totals.critical},
                         {"warning", "Warnings", totals.warning},
                         {"unknown", "Unknown", totals.unknown},
                         {"info", "Infos", totals.info},
                         {"muted", "Muted", totals.muted},
                         {"samples", "Samples", std::uint64_t{all.samples.size()}},
                         {"log_lines", "Log lines", std::uint64_t{all.log.size()}},
                         {"items", "Read and run", std::uint64_t{all.items.size()}},
                         {"unread_items", "Not to be read", CountUnread(all)}}};
    Print(One("report", record,
              fmt::format("Wrote {}; see index.html in it{}.", options.file,
                          options.plain ? "" : " before it is sent")),
          context.json);
}

std::vector<Argument> DeclareReport(ReportOptions& options) {
    return {
        {.name = "FILE",
         .help = "the archive to write, such as report.tar.gz",
         .target = &options.file,
         .required = true,
         .completion = Completion::kFile},
        {.name = "--seconds",
         .help = "sample the statistics for so many seconds",
         .target = &options.seconds,
         .showsDefault = true,
         .check = WhyNoSeconds,
         .valueName = "SECONDS"},
        {.name = "--patience",
         .help = "wait so many seconds for tools and devices that do not answer; the report tells of them",
         .target = &options.patience,
         .showsDefault = true,
         .check = WhyNoSeconds,
         .valueName = "SECONDS"},
        {.name = "--plain",
         .help = "leave the names of hosts, devices, volumes and mounts, serial numbers and UUIDs as they "
                 "are; else stand-ins take their place, the same one for a name everywhere",
         .target = &options.plain},
        {.name = "--force", .help = "replace FILE when it is there", .target = &options.force}};
}

}  // namespace

Verb ReportVerb() {
    Verb verb = MakeVerb<ReportOptions>(
        "report",
        "Write all that a support case needs into one archive: findings, configuration, what kernel and SSDs "
        "tell, statistics and log, as a page (index.html) and for programs (report.json). It changes no "
        "cache",
        "vemocachectl report /root/report.tar.gz\n  vemocachectl report --seconds 60 /root/report.tar.gz",
        DeclareReport, MakeReport);
    verb.canDryRun = false;  // all that it makes is a file that is asked for
    return verb;
}

}  // namespace cli
