#include <array>
#include <charconv>
#include <cstring>

#include "sizing/formats/reader.h"

namespace sizing {
namespace {

constexpr std::uint32_t kMagic = 0x65617400;

// A record as a CPU of either byte order wrote it; `following` bytes come behind it.
struct Record {
    std::uint32_t magic;
    std::uint32_t sequence;
    std::uint64_t time;  // ns
    std::uint64_t sector;
    std::uint32_t bytes;
    std::uint32_t action;  // what happened, below 2^16; above it bits for what kind of request it happened to
    std::uint32_t process;
    std::uint32_t device;  // the minor number in the lower 20 bits
    std::uint32_t cpu;
    std::uint16_t error;
    std::uint16_t following;
};
static_assert(sizeof(Record) == 48);

constexpr std::uint32_t kActionMask = 0xff;
constexpr std::uint32_t kQueue = 1;
constexpr std::uint32_t kIssue = 7;

constexpr std::uint32_t kRead = 1U << 16U;
constexpr std::uint32_t kWrite = 1U << 17U;
constexpr std::uint32_t kFlush = 1U << 18U;
constexpr std::uint32_t kCommand = 1U << 25U;  // for the device, with its bytes
constexpr std::uint32_t kNotice = 1U << 26U;
constexpr std::uint32_t kDiscard = 1U << 29U;

constexpr unsigned kMinorBits = 20;

void Swap(std::uint64_t& value) {
    value = __builtin_bswap64(value);
}
void Swap(std::uint32_t& value) {
    value = __builtin_bswap32(value);
}
void Swap(std::uint16_t& value) {
    value = __builtin_bswap16(value);
}

// Whether it is a record of any version, turned to the byte order of this machine.
bool Decode(std::string_view bytes, Record& record) {
    bytes.copy(reinterpret_cast<char*>(&record), sizeof record);
    if ((record.magic & ~0xffU) != kMagic) {
        Swap(record.magic);
        Swap(record.sequence);
        Swap(record.time);
        Swap(record.sector);
        Swap(record.bytes);
        Swap(record.action);
        Swap(record.process);
        Swap(record.device);
        Swap(record.cpu);
        Swap(record.error);
        Swap(record.following);
    }
    return (record.magic & ~0xffU) == kMagic;
}

Outcome KindOf(const Record& record, Stage wanted, Kind& kind) {
    const std::uint32_t happened = record.action & kActionMask;
    if ((record.action & (kNotice | kCommand)) != 0 || (happened != kQueue && happened != kIssue)) {
        return Outcome::kIgnored;
    }
    if ((record.action & kFlush) != 0 && record.bytes == 0) {
        kind = Kind::kFlush;
    } else if ((record.action & kDiscard) != 0) {  // which is marked as written, too
        kind = Kind::kDiscard;
    } else if ((record.action & kWrite) != 0) {
        kind = Kind::kWrite;
    } else if ((record.action & kRead) != 0) {
        kind = Kind::kRead;
    } else {
        return Outcome::kIgnored;
    }
    return happened == (wanted == Stage::kQueued ? kQueue : kIssue) ? Outcome::kRequest
                                                                    : Outcome::kOtherStage;
}

// "8,16", as the text form of such traces has it.
std::string_view NameOf(std::uint32_t device, std::array<char, 32>& room) {
    char* end = std::to_chars(room.begin(), room.end(), device >> kMinorBits).ptr;
    *end++ = ',';
    end = std::to_chars(end, room.end(), device & ((1U << kMinorBits) - 1)).ptr;
    return {room.data(), end};
}

class Blktrace : public Reader {
  public:
    Blktrace(ByteBuffer bytes, std::string file, ReadContext& context)
        : bytes_(std::move(bytes)), file_(std::move(file)), context_(context), report_(context.report) {}

    std::size_t Read(std::span<Request> batch) override {
        std::size_t count = 0;
        while (count < batch.size() && bytes_.Have(sizeof(Record))) {
            Record record{};
            ++number_;
            ++report_.records;
            if (!Decode(bytes_.Bytes(), record) || (record.magic & 0xffU) != kBlktraceVersion) {
                SkipRubbish();
            } else if (Take(record) && Convert(record, batch[count])) {
                ++count;
            }
        }
        if (count < batch.size()) {
            End();
        }
        return count;
    }

  private:
    void Bad(const char* why) {
        if (report_.CountBad()) {
            report_.TellBad(file_, number_, why);
        }
    }

    // Up to where the next record may begin.
    void SkipRubbish() {
        Bad("is none of this format's records, though one should begin here");
        bytes_.Skip(1);
        while (bytes_.Have(sizeof(std::uint32_t))) {
            const std::string_view bytes = bytes_.Bytes();
            std::size_t at = 0;
            while (at + sizeof(std::uint32_t) <= bytes.size() &&
                   BlktraceVersion(bytes.substr(at)) != kBlktraceVersion) {
                ++at;
            }
            bytes_.Skip(at);
            if (at + sizeof(std::uint32_t) <= bytes.size()) {
                return;
            }
        }
    }

    // With all that follows it.
    bool Take(const Record& record) {
        std::size_t left = sizeof record + record.following;
        for (;;) {
            const std::size_t count = std::min(left, bytes_.Bytes().size());
            bytes_.Skip(count);
            left -= count;
            if (left == 0) {
                return true;
            }
            if (!bytes_.Fill()) {
                Bad("is cut off in the middle");
                return false;
            }
        }
    }

    bool Convert(const Record& record, Request& request) {
        switch (KindOf(record, context_.options.stage, request.kind)) {
            case Outcome::kRequest:
                break;
            case Outcome::kOtherStage:
                ++report_.ofOtherStage;
                return false;
            default:
                ++report_.ignored;
                return false;
        }
        if (record.sector > std::numeric_limits<std::uint64_t>::max() / kSector) {
            Bad("lies beyond 2^64 bytes");
            return false;
        }
        request.time = record.time;
        request.offset = record.sector * kSector;
        request.length = record.bytes;
        if (record.device != lastDevice_ || !hasDevice_) {
            std::array<char, 32> room{};
            lastVolume_ = context_.volumes.KeyOf(NameOf(record.device, room));
            lastDevice_ = record.device;
            hasDevice_ = true;
        }
        request.volume = lastVolume_;
        return report_.Accept(request, file_, number_);
    }

    void End() {
        if (!bytes_.Damage().empty()) {
            report_.AddCutShort(file_, bytes_.Damage());
        }
        if (!bytes_.Bytes().empty()) {
            ++number_;
            ++report_.records;
            Bad("is cut off in the middle");
            bytes_.Skip(bytes_.Bytes().size());
        }
    }

    ByteBuffer bytes_;
    std::string file_;
    ReadContext& context_;
    ReadReport& report_;
    std::uint64_t number_ = 0;  // records begun
    bool hasDevice_ = false;
    std::uint32_t lastDevice_ = 0;
    std::uint64_t lastVolume_ = 0;
};

}  // namespace

std::unique_ptr<Reader> BlktraceReader(ByteBuffer bytes, std::string file, ReadContext& context) {
    return std::make_unique<Blktrace>(std::move(bytes), std::move(file), context);
}

std::optional<unsigned> BlktraceVersion(std::string_view bytes) {
    std::uint32_t word = 0;
    if (bytes.size() < sizeof word) {
        return std::nullopt;
    }
    std::memcpy(&word, bytes.data(), sizeof word);
    if ((word & ~0xffU) != kMagic) {
        word = __builtin_bswap32(word);
    }
    return (word & ~0xffU) == kMagic ? std::optional(word & 0xffU) : std::nullopt;
}

}  // namespace sizing
