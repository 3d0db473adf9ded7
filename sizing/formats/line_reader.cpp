#include <algorithm>
#include <cstring>

#include "sizing/formats/reader.h"
#include "sizing/trace/quote.h"

namespace sizing {
namespace {

// A line has to fit the buffer: longer ones are bad, and skipped as they come.
class Lines : public Reader {
  public:
    Lines(ByteBuffer bytes, std::string file, std::unique_ptr<LineParser> parser, ReadContext& context)
        : bytes_(std::move(bytes)),
          file_(std::move(file)),
          parser_(std::move(parser)),
          report_(context.report) {}

    std::size_t Read(std::span<Request> batch) override {
        std::size_t count = 0;
        std::string_view line;
        while (count < batch.size() && NextLine(line)) {
            if (ParseLine(line, batch[count])) {
                ++count;
            }
        }
        if (count < batch.size() && !bytes_.Damage().empty()) {
            report_.AddCutShort(file_, bytes_.Damage());
        }
        return count;
    }

  private:
    // Without its end. Valid until the next call.
    bool NextLine(std::string_view& line) {
        for (;;) {
            const std::string_view bytes = bytes_.Bytes();
            const void* const end = bytes.size() == searched_ ? nullptr
                                                              : std::memchr(bytes.data() + searched_, '\n',
                                                                            bytes.size() - searched_);
            if (end != nullptr) {
                line =
                    bytes.substr(0, static_cast<std::size_t>(static_cast<const char*>(end) - bytes.data()));
                return Take(line.size() + 1);
            }
            searched_ = bytes.size();
            if (bytes_.IsFull()) {
                SkipLongLine();
            } else if (!bytes_.Fill()) {
                line = bytes_.Bytes();
                return !line.empty() && Take(line.size());
            }
        }
    }

    bool Take(std::size_t count) {
        bytes_.Skip(count);
        searched_ = 0;
        ++number_;
        return true;
    }

    void SkipLongLine() {
        ++number_;
        ++report_.records;
        if (report_.CountBad()) {
            report_.TellBad(file_, number_, "is longer than " + std::to_string(ByteBuffer::kSize) + " bytes");
        }
        searched_ = 0;
        do {
            const std::string_view bytes = bytes_.Bytes();
            const std::size_t end = bytes.find('\n');
            bytes_.Skip(end == std::string_view::npos ? bytes.size() : end + 1);
            if (end != std::string_view::npos) {
                return;
            }
        } while (bytes_.Fill());
    }

    void TellBad(std::string_view line) {
        if (report_.CountBad()) {
            report_.TellBad(file_, number_,
                            "cannot be understood from column " + std::to_string(parser_->Understood() + 1) +
                                " on: " + Quote(line));
        }
    }

    // Whether it is a request that counts.
    bool ParseLine(std::string_view line, Request& request) {
        if (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
        if (line.empty()) {
            return false;
        }
        ++report_.records;
        switch (parser_->Parse(line, request)) {
            case Outcome::kRequest:
                break;
            case Outcome::kIgnored:
                ++report_.ignored;
                return false;
            case Outcome::kOtherStage:
                ++report_.ofOtherStage;
                return false;
            case Outcome::kBad:
                TellBad(line);
                return false;
        }
        return report_.Accept(request, file_, number_);
    }

    ByteBuffer bytes_;
    std::string file_;
    std::unique_ptr<LineParser> parser_;
    ReadReport& report_;
    std::uint64_t number_ = 0;  // lines begun
    std::size_t searched_ = 0;  // bytes in front that hold no end of a line
};

}  // namespace

std::unique_ptr<Reader> LineReader(ByteBuffer bytes, std::string file, std::unique_ptr<LineParser> parser,
                                   ReadContext& context) {
    return std::make_unique<Lines>(std::move(bytes), std::move(file), std::move(parser), context);
}

}  // namespace sizing
