#include <zstd.h>

#include <string>
#include <vector>

#include "sizing/failure.h"
#include "sizing/input/byte_source.h"

namespace sizing {
namespace {

struct FreeDecoder {
    void operator()(ZSTD_DStream* decoder) const noexcept { ZSTD_freeDStream(decoder); }
};

// The decoder itself refuses windows over 128 MiB, so no file makes it take more memory.
class ZstdSource : public ByteSource {
  public:
    ZstdSource(std::unique_ptr<ByteSource> packed, std::string name)
        : packed_(std::move(packed)),
          name_(std::move(name)),
          decoder_(ZSTD_createDStream()),
          buffer_(ZSTD_DStreamInSize()) {
        if (decoder_ == nullptr) {
            throw Damage("there is no memory to decompress it");
        }
    }

    std::size_t Read(char* to, std::size_t room) override {
        ZSTD_outBuffer out{to, room, 0};
        while (out.pos == 0) {
            if (in_.pos == in_.size) {
                in_ = {buffer_.data(), packed_->Read(buffer_.data(), buffer_.size()), 0};
                if (in_.size == 0 && wanted_ == 0) {
                    return 0;
                }
                if (in_.size == 0 && !mayHoldBack_) {
                    throw Damage("it ends in the middle");
                }
            }
            wanted_ = ZSTD_decompressStream(decoder_.get(), &out, &in_);
            if (ZSTD_isError(wanted_) != 0) {
                throw Damage(ZSTD_getErrorName(wanted_));
            }
            mayHoldBack_ = out.pos == out.size;
        }
        return out.pos;
    }

  private:
    Failure Damage(const std::string& why) const {
        return {"cannot decompress " + name_, why, "zstd -tv " + name_};
    }

    std::unique_ptr<ByteSource> packed_;
    std::string name_;
    std::unique_ptr<ZSTD_DStream, FreeDecoder> decoder_;
    std::vector<char> buffer_;
    ZSTD_inBuffer in_{nullptr, 0, 0};
    std::size_t wanted_ = 0;    // 0: at the end of a frame, where the file may end too
    bool mayHoldBack_ = false;  // it filled all the room: it may have more without reading on
};

}  // namespace

std::unique_ptr<ByteSource> Unzstd(std::unique_ptr<ByteSource> packed, std::string name) {
    return std::make_unique<ZstdSource>(std::move(packed), std::move(name));
}

}  // namespace sizing
