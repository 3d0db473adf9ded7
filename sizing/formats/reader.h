// Requests of one file.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>

#include "sizing/formats/line_parser.h"
#include "sizing/input/byte_buffer.h"
#include "sizing/request.h"
#include "sizing/trace/report.h"

namespace sizing {

enum class Format { kBlkparse, kBlktrace, kFio, kMsr, kAlibaba, kSystor, kTencent, kSpc };

struct ReadOptions {
    std::optional<Format> format = std::nullopt;  // none: recognised by the contents, each file's by itself
    Stage stage = Stage::kQueued;                 // of block traces
};

class Reader {
  public:
    Reader() = default;
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    virtual ~Reader() = default;

    // Fills `batch` with the next requests, in the order of the file; fewer at the end alone. Tells what it
    // met in the report that it was made with.
    virtual std::size_t Read(std::span<Request> batch) = 0;
};

// What the readers of a trace share, which outlives them.
struct ReadContext {
    ReadOptions options;
    VolumeNames volumes;
    ReadReport report;
};

std::unique_ptr<Reader> LineReader(ByteBuffer bytes, std::string file, std::unique_ptr<LineParser> parser,
                                   ReadContext& context);
std::unique_ptr<Reader> BlktraceReader(ByteBuffer bytes, std::string file, ReadContext& context);

// The version of the binary block trace that these are the first bytes of, if they are; the reader knows one.
std::optional<unsigned> BlktraceVersion(std::string_view bytes);
inline constexpr unsigned kBlktraceVersion = 7;

}  // namespace sizing
