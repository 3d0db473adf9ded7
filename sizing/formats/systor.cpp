#include "sizing/formats/line_parser.h"

namespace sizing {
namespace {

// Seconds, response in seconds, R or W, unit, offset and size in bytes, below a line of their names:
//   1456095145.250000000,0.000400000,R,2,81920,4096
// The response and the kind may be empty; what is neither read nor written is no request for us.
class Systor : public LineParser {
  public:
    using LineParser::LineParser;

    Outcome Parse(std::string_view text, Request& request) override {
        Fields line(text);
        std::uint64_t response = 0;
        std::string_view unit;
        if (line.Rest() == "Timestamp,Response,IOType,LUN,Offset,Size") {
            return Outcome::kIgnored;
        }
        if (!line.Seconds(request.time) || !line.Comma() ||
            !(line.Comma() || (line.Seconds(response) && line.Comma()))) {
            return Bad(line);
        }
        const bool hasKind = line.ReadOrWrite(request.kind);
        const bool good = line.Comma() && line.Until(',', unit) && line.Number(request.offset) &&
                          line.Comma() && line.Number(request.length) && line.IsAtEnd();
        if (!good) {
            return Bad(line);
        }
        request.volume = VolumeOf(unit);
        return hasKind ? Outcome::kRequest : Outcome::kIgnored;
    }
};

}  // namespace

std::unique_ptr<LineParser> SystorParser(VolumeNames& volumes) {
    return std::make_unique<Systor>(volumes);
}

}  // namespace sizing
