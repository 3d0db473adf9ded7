#include "sizing/formats/formats.h"

#include <algorithm>

#include "sizing/failure.h"
#include "sizing/trace/quote.h"

namespace sizing {
namespace {

using MakeParser = std::unique_ptr<LineParser> (*)(VolumeNames& volumes, Stage stage);

struct KnownFormat {
    Format format;
    const char* name;
    MakeParser makeParser;  // none: it is no text
};

template <std::unique_ptr<LineParser> (*make)(VolumeNames&)>
std::unique_ptr<LineParser> WithoutStage(VolumeNames& volumes, Stage /*stage*/) {
    return make(volumes);
}

constexpr KnownFormat kFormats[] = {{Format::kBlkparse, "blkparse", BlkparseParser},
                                    {Format::kBlktrace, "blktrace", nullptr},
                                    {Format::kFio, "fio", WithoutStage<FioParser>},
                                    {Format::kMsr, "msr", WithoutStage<MsrParser>},
                                    {Format::kAlibaba, "alibaba", WithoutStage<AlibabaParser>},
                                    {Format::kSystor, "systor", WithoutStage<SystorParser>},
                                    {Format::kTencent, "tencent", WithoutStage<TencentParser>},
                                    {Format::kSpc, "spc", WithoutStage<SpcParser>}};

const KnownFormat& Known(Format format) {
    return *std::ranges::find(kFormats, format, &KnownFormat::format);
}

// The first lines that are not blank, without their ends; the last may be cut.
std::vector<std::string_view> FirstLines(std::string_view text) {
    constexpr std::size_t kMost = 16;
    std::vector<std::string_view> lines;
    while (!text.empty() && lines.size() < kMost) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        line = line.substr(0, line.find_last_not_of('\r') + 1);
        if (!line.empty()) {
            lines.push_back(line);
        }
    }
    return lines;
}

// How many of the lines are such as the format has.
long Fits(const KnownFormat& known, const std::vector<std::string_view>& lines) {
    if (known.makeParser == nullptr) {
        return 0;
    }
    VolumeNames volumes;
    const auto parser = known.makeParser(volumes, Stage::kQueued);
    return std::ranges::count_if(lines, [&](std::string_view line) {
        Request request;
        return parser->Parse(line, request) != Outcome::kBad;
    });
}

Format Recognise(std::string_view head, const std::string& file) {
    if (const auto version = BlktraceVersion(head)) {
        if (*version == kBlktraceVersion) {
            return Format::kBlktrace;
        }
        throw Failure(file + " is a binary block trace of version " + std::to_string(*version),
                      "version " + std::to_string(kBlktraceVersion) + " alone is known", "");
    }
    const std::vector<std::string_view> lines = FirstLines(head);
    const KnownFormat* best = nullptr;
    long most = 0;
    for (const KnownFormat& known : kFormats) {
        const long fits = Fits(known, lines);
        if (fits > most) {
            most = fits;
            best = &known;
        }
    }
    if (best == nullptr) {
        throw Failure(file + " is none of the traces that are known",
                      "its first line is " + Quote(lines.empty() ? "" : lines.front()),
                      file == kStandardInput ? "" : "head -n 3 " + file);
    }
    return best->format;
}

}  // namespace

std::string_view NameOf(Format format) {
    return Known(format).name;
}

std::optional<Format> FormatByName(std::string_view name) {
    const auto* const known = std::ranges::find(kFormats, name, &KnownFormat::name);
    return known == std::end(kFormats) ? std::nullopt : std::optional(known->format);
}

std::vector<std::string> FormatNames() {
    std::vector<std::string> names;
    std::ranges::transform(kFormats, std::back_inserter(names), &KnownFormat::name);
    return names;
}

std::unique_ptr<Reader> MakeReader(ByteBuffer bytes, const std::string& file, ReadContext& context) {
    while (bytes.Fill()) {
    }
    if (bytes.Bytes().empty()) {
        if (!bytes.Damage().empty()) {
            throw Failure("cannot read " + file, bytes.Damage(), "");
        }
        return nullptr;
    }
    const Format format = context.options.format.value_or(Format::kBlktrace);
    const KnownFormat& known = Known(context.options.format ? format : Recognise(bytes.Bytes(), file));
    context.report.formats.push_back({file, known.name});
    if (known.makeParser == nullptr) {
        return BlktraceReader(std::move(bytes), file, context);
    }
    return LineReader(std::move(bytes), file, known.makeParser(context.volumes, context.options.stage),
                      context);
}

}  // namespace sizing
