#include <algorithm>

#include "sizing/formats/line_parser.h"

namespace sizing {
namespace {

// Major and minor number, CPU, sequence, seconds, process, action, kind, sector + sectors, program:
//     8,16   3      241     0.004512873  4021  Q  WS 7340032 + 16 [postgres]
// Behind the events comes a summary, which begins with "CPU0 (8,16):" or "Total (8,16):".
class Blkparse : public LineParser {
  public:
    Blkparse(VolumeNames& volumes, Stage stage)
        : LineParser(volumes), wanted_(stage == Stage::kQueued ? "Q" : "D") {}

    Outcome Parse(std::string_view text, Request& request) override {
        Fields line(text);

        std::string_view volume;
        std::string_view action;
        if (!ParseHead(line, volume, request.time, action)) {
            isInSummary_ = isInSummary_ || (hasEvents_ && StartsSummary(text));
            return isInSummary_ ? Outcome::kIgnored : Bad(line);
        }
        hasEvents_ = true;
        isInSummary_ = false;  // another trace may follow
        if (action != "Q" && action != "D") {
            return Outcome::kIgnored;
        }
        const Outcome outcome = ParseRequest(line, request);
        if (outcome != Outcome::kRequest) {
            return outcome;
        }
        request.volume = VolumeOf(volume);
        return action == wanted_ ? Outcome::kRequest : Outcome::kOtherStage;
    }

  private:
    static bool StartsSummary(std::string_view line) {
        return line.starts_with("CPU") || line.starts_with("Total (");
    }

    static bool ParseHead(Fields& line, std::string_view& volume, std::uint64_t& time,
                          std::string_view& action) {
        std::uint64_t number = 0;
        line.Blanks();
        const char* const start = line.Rest().data();
        if (!line.Number(number) || !line.Comma() || !line.Number(number)) {
            return false;
        }
        volume = {start, static_cast<std::size_t>(line.Rest().data() - start)};
        return line.Blanks() && line.Number(number) && line.Blanks() && line.Number(number) &&
               line.Blanks() && line.Seconds(time) && line.Blanks() && line.Number(number) && line.Blanks() &&
               line.Word(action) && action.size() <= 2;
    }

    Outcome ParseRequest(Fields& line, Request& request) {
        std::string_view letters;
        if (!line.Blanks() || !line.Word(letters) || !line.Blanks() || line.IsAtEnd()) {
            return Bad(line);
        }
        request.offset = 0;
        request.length = 0;
        if (!line.Rest().starts_with('[')) {  // there is none with a flush that carries no data
            if (!line.Scaled(kSector, request.offset)) {
                return Bad(line);
            }
            if (line.Blanks() && line.Is('(')) {
                return Outcome::kIgnored;  // a command for the device, with its bytes
            }
            if (!line.Is('+') || !line.Blanks() || !line.Scaled(kSector, request.length)) {
                return Bad(line);
            }
        }
        return ParseLetters(line, letters, request);
    }

    // What is done is one letter; F before it asks for a flush first, letters after it tell how.
    Outcome ParseLetters(const Fields& line, std::string_view letters, Request& request) {
        const std::size_t at = letters.find_first_not_of('F');
        const char letter = at == std::string_view::npos ? 'N' : letters[at];
        switch (letter) {
            case 'R':
                request.kind = Kind::kRead;
                break;
            case 'W':
                request.kind = Kind::kWrite;
                break;
            case 'D':
            case 'E':
                request.kind = Kind::kDiscard;
                break;
            case 'N':
                request.kind = Kind::kFlush;
                break;
            default:
                return Bad(line);
        }
        const bool isFlush = at != 0 && request.length == 0;
        if (isFlush) {
            request.kind = Kind::kFlush;
        }
        return request.kind == Kind::kFlush && !isFlush ? Outcome::kIgnored : Outcome::kRequest;
    }

    std::string_view wanted_;
    bool hasEvents_ = false;
    bool isInSummary_ = false;
};

}  // namespace

std::unique_ptr<LineParser> BlkparseParser(VolumeNames& volumes, Stage stage) {
    return std::make_unique<Blkparse>(volumes, stage);
}

}  // namespace sizing
