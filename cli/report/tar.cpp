#include "report/tar.h"

#include <fmt/format.h>
#include <zlib.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace cli {
namespace {

constexpr std::size_t kRecord = 512;

// A file's header, as POSIX has it; numbers are octal texts.
struct Header {
    char name[100];
    char mode[8];
    char user[8];
    char group[8];
    char size[12];
    char time[12];
    char sum[8];
    char kind;
    char link[100];
    char magic[6];
    char version[2];
    char userName[32];
    char groupName[32];
    char major[8];
    char minor[8];
    char prefix[155];
    char padding[12];
};
static_assert(sizeof(Header) == kRecord);

template <std::size_t Size>
void Put(char (&field)[Size], std::string_view text) {
    std::copy_n(text.begin(), std::min(Size, text.size()), field);
}

template <std::size_t Size>
void PutNumber(char (&field)[Size], std::uint64_t number) {
    Put(field, fmt::format("{:0{}o}", number, Size - 1));
}

void PutName(Header& header, std::string_view name) {
    std::string_view folder;
    std::string_view file = name;
    if (name.size() > sizeof header.name) {
        // The first "/" that leaves little enough behind it.
        const auto slash = name.find('/', name.size() - sizeof header.name - 1);
        folder = name.substr(0, slash);
        file = slash == std::string_view::npos ? "" : name.substr(slash + 1);
    }
    if (file.empty() || folder.size() > sizeof header.prefix) {
        throw std::invalid_argument(fmt::format("too long a name for an archive: {}", name));
    }
    Put(header.name, file);
    Put(header.prefix, folder);
}

void PutSum(Header& header) {
    std::memset(header.sum, ' ', sizeof header.sum);
    const auto* bytes = reinterpret_cast<const unsigned char*>(&header);
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < kRecord; ++i) {
        sum += bytes[i];
    }
    Put(header.sum, fmt::format("{:06o}", sum));
    header.sum[6] = '\0';
}

}  // namespace

void TarWriter::Add(std::string_view name, std::string_view content) {
    Header header{};
    PutName(header, name);
    PutNumber(header.mode, 0600);
    PutNumber(header.user, 0);
    PutNumber(header.group, 0);
    PutNumber(header.size, content.size());
    PutNumber(header.time, static_cast<std::uint64_t>(time_));
    header.kind = '0';
    Put(header.magic, "ustar");
    Put(header.version, "00");
    PutSum(header);
    bytes_.append(reinterpret_cast<const char*>(&header), kRecord);
    bytes_.append(content);
    bytes_.append((kRecord - content.size() % kRecord) % kRecord, '\0');
}

std::string TarWriter::Take() {
    std::string bytes = std::exchange(bytes_, "");
    return bytes.append(2 * kRecord, '\0');
}

std::string Gzipped(std::string_view bytes) {
    constexpr int kGzipWindow = 15 + 16;
    z_stream stream{};
    if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, kGzipWindow, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
        throw std::runtime_error("no memory to compress with");
    }
    std::string packed(deflateBound(&stream, bytes.size()), '\0');
    // zlib takes no const memory, and changes none.
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    const int result = deflate(&stream, Z_FINISH);
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    if (result != Z_STREAM_END) {
        throw std::runtime_error("the archive could not be compressed");
    }
    return packed;
}

}  // namespace cli
