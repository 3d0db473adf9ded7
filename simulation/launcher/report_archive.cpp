#include "simulation/launcher/report_archive.h"

#include <zlib.h>

#include <cstring>
#include <memory>
#include <stdexcept>

#include "simulation/common/checked.h"

namespace simulation {

namespace {

constexpr size_t kMost = size_t{256} << 20;  // a report has a few megabytes
constexpr size_t kRecord = 512;

// zlib hands on what is not compressed as it is.
std::string Unpacked(const std::string& path) {
    const std::unique_ptr<gzFile_s, int (*)(gzFile)> file(gzopen(path.c_str(), "rb"), gzclose);
    if (!file) {
        ThrowErrno(path);
    }
    std::string text;
    std::string buffer(1 << 20, '\0');
    int count = 0;
    while ((count = gzread(file.get(), buffer.data(), static_cast<unsigned>(buffer.size()))) > 0) {
        text.append(buffer, 0, static_cast<size_t>(count));
        if (text.size() > kMost) {
            throw std::runtime_error(path + " is too large for a report");
        }
    }
    int error = Z_OK;
    gzerror(file.get(), &error);
    if (count < 0 || error == Z_BUF_ERROR) {
        throw std::runtime_error(path + " is damaged, or not all of it is there");
    }
    return text;
}

// A number of a header, an octal text.
size_t NumberAt(const std::string& archive, size_t at, size_t length) {
    return std::strtoull(archive.substr(at, length).c_str(), nullptr, 8);
}

}  // namespace

std::string ReadReport(const std::string& path) {
    std::string bytes = Unpacked(path);
    constexpr size_t kMagicAt = 257;
    if (bytes.size() < kRecord || bytes.compare(kMagicAt, 5, "ustar") != 0) {
        return bytes;
    }
    for (size_t at = 0; at + kRecord <= bytes.size() && bytes[at] != '\0';) {
        std::string name = bytes.substr(at, 100);
        name.resize(strnlen(name.data(), name.size()));
        const size_t size = NumberAt(bytes, at + 124, 12);
        if (size > bytes.size() - at - kRecord) {
            break;
        }
        if (name.ends_with("/report.json")) {
            return bytes.substr(at + kRecord, size);
        }
        at += kRecord + (size + kRecord - 1) / kRecord * kRecord;
    }
    throw std::runtime_error(path + " holds no report.json: it is no archive of \"vemocachectl report\"");
}

}  // namespace simulation
