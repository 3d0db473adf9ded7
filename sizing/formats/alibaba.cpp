#include "sizing/formats/line_parser.h"

namespace sizing {
namespace {

// Device, R or W, offset and length in bytes, time in us:
//   17,W,73728,12288,1577808001000042
class Alibaba : public LineParser {
  public:
    using LineParser::LineParser;

    Outcome Parse(std::string_view text, Request& request) override {
        Fields line(text);
        std::string_view device;
        const bool good = line.Until(',', device) && line.ReadOrWrite(request.kind) && line.Comma() &&
                          line.Number(request.offset) && line.Comma() && line.Number(request.length) &&
                          line.Comma() && line.Scaled(1'000, request.time) && line.IsAtEnd();
        if (!good) {
            return Bad(line);
        }
        request.volume = VolumeOf(device);
        return Outcome::kRequest;
    }
};

}  // namespace

std::unique_ptr<LineParser> AlibabaParser(VolumeNames& volumes) {
    return std::make_unique<Alibaba>(volumes);
}

}  // namespace sizing
