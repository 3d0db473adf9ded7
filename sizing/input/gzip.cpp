#include <zlib.h>

#include <string>
#include <vector>

#include "sizing/failure.h"
#include "sizing/input/byte_source.h"

namespace sizing {
namespace {

constexpr std::size_t kPackedBuffer = std::size_t{64} << 10U;
constexpr int kGzipOnly = 15 + 16;  // the largest window; only the form with gzip's head

class GzipSource : public ByteSource {
  public:
    GzipSource(std::unique_ptr<ByteSource> packed, std::string name)
        : packed_(std::move(packed)), name_(std::move(name)), buffer_(kPackedBuffer) {
        if (inflateInit2(&stream_, kGzipOnly) != Z_OK) {
            throw Damage("there is no memory to decompress it");
        }
    }
    GzipSource(const GzipSource&) = delete;
    GzipSource& operator=(const GzipSource&) = delete;
    ~GzipSource() override { inflateEnd(&stream_); }

    std::size_t Read(char* to, std::size_t room) override {
        stream_.next_out = reinterpret_cast<Bytef*>(to);
        stream_.avail_out = static_cast<uInt>(room);
        while (stream_.avail_out == room && !isDone_) {
            Step(room);
        }
        return room - stream_.avail_out;
    }

  private:
    Failure Damage(const std::string& why) const {
        return {"cannot decompress " + name_, why, "gzip -tv " + name_};
    }

    bool HavePacked() {
        if (stream_.avail_in == 0) {
            stream_.next_in = reinterpret_cast<Bytef*>(buffer_.data());
            stream_.avail_in = static_cast<uInt>(packed_->Read(buffer_.data(), buffer_.size()));
        }
        return stream_.avail_in > 0;
    }

    void Step(std::size_t room) {
        if (!HavePacked()) {
            if (!isBetweenMembers_) {
                throw Damage("it ends in the middle");
            }
            isDone_ = true;
            return;
        }
        if (isBetweenMembers_ && membersSeen_ > 0 && *stream_.next_in != kFirstByte) {
            isDone_ = true;  // padding, as tapes leave it
            return;
        }
        isBetweenMembers_ = false;
        const int result = inflate(&stream_, Z_NO_FLUSH);
        if (result == Z_STREAM_END) {
            isBetweenMembers_ = true;
            ++membersSeen_;
            inflateReset(&stream_);
        } else if (result != Z_OK && result != Z_BUF_ERROR && stream_.avail_out == room) {
            throw Damage(stream_.msg == nullptr ? "its contents are damaged" : stream_.msg);
        }
    }

    static constexpr Bytef kFirstByte = 0x1f;
    std::unique_ptr<ByteSource> packed_;
    std::string name_;
    std::vector<char> buffer_;
    z_stream stream_{};
    bool isBetweenMembers_ = true;
    unsigned long membersSeen_ = 0;
    bool isDone_ = false;
};

}  // namespace

std::unique_ptr<ByteSource> Gunzip(std::unique_ptr<ByteSource> packed, std::string name) {
    return std::make_unique<GzipSource>(std::move(packed), std::move(name));
}

}  // namespace sizing
