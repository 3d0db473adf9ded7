#include <fmt/format.h>
#include <unistd.h>

#include <map>

#include "advise/cache.h"
#include "advise/curve.h"
#include "advise/describe_trace.h"
#include "advise/volume.h"
#include "output/step_line.h"
#include "output/terminal.h"
#include "sizing/failure.h"
#include "support/kept_file.h"
#include "support/names.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct AdviseTraceOptions {
    std::vector<std::string> files;
    std::string format;
    std::string stage = "queued";
    ByteSize size;
    std::string mode;
    std::string policy = "lru";
    std::string block = "64K";
    bool exact = false;
    std::int32_t samples = static_cast<std::int32_t>(sizing::SampledCurve::kSamples);
    std::int32_t seed = 0;
    std::int32_t skipSequentialKb = 0;
    std::string svg;
};

const std::map<std::string, sizing::WriteMode> kTraceModes = {{"back", sizing::WriteMode::kBack},
                                                              {"thru", sizing::WriteMode::kThru},
                                                              {"around", sizing::WriteMode::kAround}};
const std::map<std::string, std::int32_t> kTracePolicies = {{"lru", sizing::kReclaimLru},
                                                            {"fifo", sizing::kReclaimFifo}};
const std::map<std::string, std::uint64_t> kTraceBlocks = {{"4K", 4096}, {"64K", 65536}};
const std::map<std::string, sizing::Stage> kTraceStages = {{"queued", sizing::Stage::kQueued},
                                                           {"issued", sizing::Stage::kIssued}};

sizing::AdviceOptions OptionsFor(const AdviseTraceOptions& options, const StepLine& line) {
    sizing::AdviceOptions advice;
    if (!options.format.empty()) {
        advice.read.format = sizing::FormatByName(options.format);
    }
    advice.read.stage = kTraceStages.at(options.stage);
    advice.blockSize = sizing::BlockSize(kTraceBlocks.at(options.block));
    advice.samples = options.exact ? 0 : static_cast<std::size_t>(options.samples);
    advice.seed = static_cast<std::uint64_t>(options.seed);
    advice.bytes = options.size.bytes;
    if (!options.mode.empty()) {
        advice.mode = kTraceModes.at(options.mode);
    }
    advice.knobs[sizing::Knob::kReclaimPolicy] = kTracePolicies.at(options.policy);
    advice.knobs[sizing::Knob::kSkipSeqThreshKb] = options.skipSequentialKb;
    advice.progress = [&line](std::uint64_t requests) {
        line.Show(
            fmt::format("reading the trace: {:.1f} million requests", static_cast<double>(requests) / 1e6));
    };
    return advice;
}

void WriteCurve(const std::string& path, const CurvePicture& picture) {
    if (picture.lines.empty()) {
        throw Failure{"there is no curve to draw", "the trace has no reads and writes", ""};
    }
    WriteFileForAll(path, SvgFileOf(picture), "the picture");
}

// For people alone: a pipe gets the numbers.
void Plot(const Context& context, const CurvePicture& picture) {
    const std::size_t columns = TerminalWidth(STDOUT_FILENO);
    if (!context.json && columns > 0 && !IsQuiet() && context.form.fields.empty() &&
        !context.form.noHeadings) {
        PrintText(PlotOf(picture, columns, HasUtf8()) + "\n");
    }
}

void AdviseTrace(const Context& context, const AdviseTraceOptions& options) try {
    std::optional<sizing::Advice> advice;
    {
        const StepLine line(context.json);
        advice = sizing::AdviseOnTrace(options.files, OptionsFor(options, line));
    }
    const CurvePicture picture = PictureOf(*advice);
    if (!options.svg.empty()) {
        WriteCurve(options.svg, picture);
    }
    Plot(context, picture);
    Print(DescribeAdvice(*advice, context.json || options.size.bytes > 0), context.json);
} catch (const sizing::Failure& failure) {
    throw Failure{failure.what(), failure.why, failure.next};
}

std::vector<Argument> DeclareAdviseTrace(AdviseTraceOptions& options) {
    return {
        {.name = "FILE",
         .help = "the trace: one file or several, plain or compressed with gzip or zstd; - is standard input",
         .target = &options.files,
         .required = true,
         .completion = Completion::kFile},
        {.name = "--format",
         .help = "what the files are; default: what their contents look like",
         .target = &options.format,
         .choices = sizing::FormatNames()},
        {.name = "--stage",
         .help = "which requests of a block trace count: those queued, or those issued to the device",
         .target = &options.stage,
         .showsDefault = true,
         .choices = NamesOf(kTraceStages)},
        {.name = "--size",
         .help = "tell of a cache of this size; default: choose one",
         .target = &options.size},
        {.name = "--mode",
         .help = "of this write mode; default: the better one is chosen",
         .target = &options.mode,
         .choices = NamesOf(kTraceModes)},
        {.name = "--policy",
         .help = "which block makes way: the one used last the longest ago, or the first that came",
         .target = &options.policy,
         .showsDefault = true,
         .choices = NamesOf(kTracePolicies)},
        {.name = "--block",
         .help = "the cache's blocks: 64K in the new format, 4K in the original one",
         .target = &options.block,
         .showsDefault = true,
         .choices = NamesOf(kTraceBlocks)},
        {.name = "--skip-sequential-kb",
         .help = "streams longer than so many KiB go past the cache; 0: none",
         .target = &options.skipSequentialKb,
         .showsDefault = true,
         .range = {0, sizing::kMostSequentialKb}},
        {.name = "--exact",
         .help =
             "sample nothing: takes memory for each block touched; a cache of --size is simulated in full",
         .target = &options.exact},
        {.name = "--sample",
         .help = "blocks that are sampled for the curve",
         .target = &options.samples,
         .showsDefault = true,
         .range = {64, 1 << 26},
         .excludes = {"--exact"}},
        {.name = "--seed",
         .help = "which blocks are sampled; the same seed gives the same answer",
         .target = &options.seed,
         .showsDefault = true,
         .range = {0, INT32_MAX}},
        {.name = "--svg",
         .help = "write the curve as a picture to this file",
         .target = &options.svg,
         .check = WhyNoFile,
         .completion = Completion::kFile}};
}

struct AdviseCacheOptions {
    std::string cache;
};

struct AdviseVolumeOptions {
    std::string mount;
    std::string ssd;
};

}  // namespace

Verb AdviseVerb() {
    return MakeGroup(
        "advise", "Advise how large a cache should be, and whether one helps at all",
        {Report(MakeVerb<AdviseTraceOptions>("trace", "Tell what size of cache recorded requests want",
                                             "vemocachectl advise trace volume_1.blkparse.gz",
                                             DeclareAdviseTrace, AdviseTrace)),
         Report(MakeVerb<AdviseCacheOptions>(
             "cache", "Tell whether a running cache earns its size, by its own counters",
             "vemocachectl advise cache cachedev_0",
             [](AdviseCacheOptions& options) { return std::vector<Argument>{CacheArgument(options.cache)}; },
             [](const Context& context, const AdviseCacheOptions& options) {
                 Print(AdviseOnCache(options.cache), context.json);
             })),
         Report(MakeVerb<AdviseVolumeOptions>(
             "volume", "Tell what size of cache the files of a volume want, by their last use",
             "vemocachectl advise volume /volume1 --ssd /dev/md3",
             [](AdviseVolumeOptions& options) {
                 return std::vector<Argument>{{.name = "MOUNT",
                                               .help = "mount path of the volume",
                                               .target = &options.mount,
                                               .required = true,
                                               .isFolder = true,
                                               .completion = Completion::kFolder},
                                              {.name = "--ssd",
                                               .help = "the SSD that a cache would have",
                                               .target = &options.ssd,
                                               .completion = Completion::kDevice}};
             },
             [](const Context& context, const AdviseVolumeOptions& options) {
                 Print(AdviseOnVolume(options.mount, options.ssd), context.json);
             }))});
}

}  // namespace cli
