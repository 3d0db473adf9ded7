#include <algorithm>
#include <utility>

#include "sizing/formats/line_parser.h"

namespace sizing {
namespace {

// Below a line that tells the version: file, action, offset and length in bytes, in version 3 with a time in
// front; the version 2 knows time only as what `wait` waits for, in us:
//   fio version 2 iolog                 fio version 3 iolog
//   /dev/vdb write 1048576 8192         1532 /dev/vdb read 4096 4096
class Fio : public LineParser {
  public:
    using LineParser::LineParser;

    Outcome Parse(std::string_view text, Request& request) override {
        Fields line(text);
        if (version_ == 0) {
            return ParseHead(line);
        }
        std::string_view file;
        std::string_view action;
        request.time = waited_;
        if (version_ == 3 && !(line.Scaled(kTimeUnit, request.time) && line.Is(' '))) {
            return Bad(line);
        }
        if (!line.Word(file) || !line.Blanks() || !line.Word(action) || !line.Blanks()) {
            return Bad(line);
        }
        if (std::ranges::find(kWithoutPlace, action) != std::end(kWithoutPlace)) {
            return line.IsAtEnd() ? Outcome::kIgnored : Bad(line);
        }
        if (action == "wait") {
            return ParseWait(line);
        }
        return ParsePlace(line, file, action, request);
    }

  private:
    Outcome ParseHead(Fields& line) {
        if (line.Rest() == "fio version 2 iolog") {
            version_ = 2;
        } else if (line.Rest() == "fio version 3 iolog") {
            version_ = 3;
        }
        return version_ == 0 ? Bad(line) : Outcome::kIgnored;
    }

    Outcome ParseWait(Fields& line) {
        std::uint64_t ns = 0;
        if (!line.Scaled(1'000, ns) || ns > std::numeric_limits<std::uint64_t>::max() - waited_) {
            return Bad(line);
        }
        waited_ += ns;
        return Outcome::kIgnored;
    }

    Outcome ParsePlace(Fields& line, std::string_view file, std::string_view action, Request& request) {
        const auto* const known =
            std::ranges::find(kActions, action, &std::pair<std::string_view, Kind>::first);
        if (known == std::end(kActions)) {
            return Bad(line);
        }
        const bool hasPlace = line.Number(request.offset) && line.Is(' ') && line.Number(request.length);
        if (!line.IsAtEnd() || (!hasPlace && known->second != Kind::kFlush)) {
            return Bad(line);
        }
        if (known->second == Kind::kFlush) {  // of the whole file, whatever is told
            request.offset = 0;
            request.length = 0;
        }
        request.kind = known->second;
        request.volume = VolumeOf(file);
        return Outcome::kRequest;
    }

    static constexpr std::uint64_t kTimeUnit = 1'000;
    static constexpr std::string_view kWithoutPlace[] = {"add", "open", "close"};
    static constexpr std::pair<std::string_view, Kind> kActions[] = {
        {"read", Kind::kRead},  {"write", Kind::kWrite},    {"trim", Kind::kDiscard},
        {"sync", Kind::kFlush}, {"datasync", Kind::kFlush}, {"sync_file_range", Kind::kFlush}};

    int version_ = 0;
    std::uint64_t waited_ = 0;  // ns
};

}  // namespace

std::unique_ptr<LineParser> FioParser(VolumeNames& volumes) {
    return std::make_unique<Fio>(volumes);
}

}  // namespace sizing
