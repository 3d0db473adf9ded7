#include "sizing/formats/line_parser.h"

namespace sizing {
namespace {

// Unit, block of 512 bytes, size in bytes, r or w, seconds; further fields may follow:
//   3,120044,4096,w,12.501000
class Spc : public LineParser {
  public:
    using LineParser::LineParser;

    Outcome Parse(std::string_view text, Request& request) override {
        Fields line(text);
        std::string_view unit;
        const bool good = line.Until(',', unit) && line.Scaled(kSector, request.offset) && line.Comma() &&
                          line.Number(request.length) && line.Comma() && line.ReadOrWrite(request.kind) &&
                          line.Comma() && line.Seconds(request.time) && (line.IsAtEnd() || line.Comma());
        if (!good) {
            return Bad(line);
        }
        request.volume = VolumeOf(unit);
        return Outcome::kRequest;
    }
};

}  // namespace

std::unique_ptr<LineParser> SpcParser(VolumeNames& volumes) {
    return std::make_unique<Spc>(volumes);
}

}  // namespace sizing
