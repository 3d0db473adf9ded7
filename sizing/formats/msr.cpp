#include <utility>

#include "sizing/formats/line_parser.h"

namespace sizing {
namespace {

// Time in 100 ns, host, disk, Read or Write, offset and size in bytes, response time:
//   128166372010000000,web,1,Write,40960,8192,1210
// The volume is host and disk.
class Msr : public LineParser {
  public:
    using LineParser::LineParser;

    Outcome Parse(std::string_view text, Request& request) override {
        Fields line(text);
        std::string_view part;
        if (!line.Scaled(100, request.time) || !line.Comma()) {
            return Bad(line);
        }
        const char* const volume = line.Rest().data();
        if (!line.Until(',', part) || !line.Until(',', part)) {
            return Bad(line);
        }
        const std::string_view name{volume, static_cast<std::size_t>(line.Rest().data() - volume - 1)};
        std::uint64_t response = 0;
        const bool good = ReadsOrWrites(line, request.kind) && line.Comma() && line.Number(request.offset) &&
                          line.Comma() && line.Number(request.length) && line.Comma() &&
                          line.Number(response) && line.IsAtEnd();
        if (!good) {
            return Bad(line);
        }
        request.volume = VolumeOf(name);
        return Outcome::kRequest;
    }

  private:
    static bool ReadsOrWrites(Fields& line, Kind& kind) {
        for (const auto& [word, meaning] : kWords) {
            if (line.Rest().starts_with(word)) {
                kind = meaning;
                return line.Skip(word.size());
            }
        }
        return false;
    }

    static constexpr std::pair<std::string_view, Kind> kWords[] = {
        {"Read", Kind::kRead}, {"Write", Kind::kWrite}, {"read", Kind::kRead}, {"write", Kind::kWrite}};
};

}  // namespace

std::unique_ptr<LineParser> MsrParser(VolumeNames& volumes) {
    return std::make_unique<Msr>(volumes);
}

}  // namespace sizing
