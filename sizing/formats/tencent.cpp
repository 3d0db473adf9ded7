#include "sizing/formats/line_parser.h"

namespace sizing {
namespace {

// Seconds, offset and size in sectors of 512 bytes, 0 for a read or 1 for a write, volume:
//   1538323300,2048,16,1,4711
class Tencent : public LineParser {
  public:
    using LineParser::LineParser;

    Outcome Parse(std::string_view text, Request& request) override {
        Fields line(text);
        const bool good = line.Seconds(request.time) && line.Comma() &&
                          line.Scaled(kSector, request.offset) && line.Comma() &&
                          line.Scaled(kSector, request.length) && line.Comma();
        const bool isRead = line.Is('0');
        if (!good || (!isRead && !line.Is('1')) || !line.Comma()) {
            return Bad(line);
        }
        const std::string_view volume = line.Rest();
        std::uint64_t number = 0;
        if (!line.Number(number) || !line.IsAtEnd()) {
            return Bad(line);
        }
        request.kind = isRead ? Kind::kRead : Kind::kWrite;
        request.volume = VolumeOf(volume);
        return Outcome::kRequest;
    }
};

}  // namespace

std::unique_ptr<LineParser> TencentParser(VolumeNames& volumes) {
    return std::make_unique<Tencent>(volumes);
}

}  // namespace sizing
