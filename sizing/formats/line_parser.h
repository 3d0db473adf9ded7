// The text formats: a parser for each, in a file of its own.
#pragma once

#include <memory>
#include <string_view>

#include "sizing/formats/fields.h"
#include "sizing/request.h"
#include "sizing/trace/volume_names.h"

namespace sizing {

// Of a block trace, whose requests are told more than once on their way, what counts as one.
enum class Stage {
    kQueued,  // as they come in
    kIssued,  // as they are handed to the device, which may be merged and split ones
};

enum class Outcome {
    kRequest,
    kIgnored,     // well-formed, but not a read, write, discard or flush: a header, a message, another event
    kOtherStage,  // a request at the stage that does not count
    kBad,         // not of this format
};

// Each is made for one file: what a line means may hang on those before.
class LineParser {
  public:
    explicit LineParser(VolumeNames& volumes) : volumes_(volumes) {}
    LineParser(const LineParser&) = delete;
    LineParser& operator=(const LineParser&) = delete;
    virtual ~LineParser() = default;

    // A line that is not empty, without its end. Fills `request` in for kRequest alone, but may touch it.
    virtual Outcome Parse(std::string_view line, Request& request) = 0;
    // How many bytes of a bad line could be understood.
    [[nodiscard]] std::size_t Understood() const noexcept { return understood_; }

  protected:
    Outcome Bad(const Fields& line) {
        understood_ = line.Position();
        return Outcome::kBad;
    }
    std::uint64_t VolumeOf(std::string_view name) { return volumes_.KeyOf(name); }

  private:
    VolumeNames& volumes_;
    std::size_t understood_ = 0;
};

std::unique_ptr<LineParser> AlibabaParser(VolumeNames& volumes);
std::unique_ptr<LineParser> BlkparseParser(VolumeNames& volumes, Stage stage);
std::unique_ptr<LineParser> FioParser(VolumeNames& volumes);
std::unique_ptr<LineParser> MsrParser(VolumeNames& volumes);
std::unique_ptr<LineParser> SpcParser(VolumeNames& volumes);
std::unique_ptr<LineParser> SystorParser(VolumeNames& volumes);
std::unique_ptr<LineParser> TencentParser(VolumeNames& volumes);

}  // namespace sizing
