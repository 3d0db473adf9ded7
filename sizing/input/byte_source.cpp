#include "sizing/input/byte_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "base/unique_fd.h"
#include "sizing/failure.h"

namespace sizing {
namespace {

using namespace std::string_view_literals;

constexpr std::string_view kGzipMagic = "\x1f\x8b"sv;
constexpr std::string_view kZstdMagic = "\x28\xb5\x2f\xfd"sv;
// A frame to be skipped, with which some writers of zstd begin; the low four bits of its first byte are free.
constexpr std::string_view kSkippableMagic = "\x2a\x4d\x18"sv;

Failure CannotRead(const std::string& name, int error) {
    return {"cannot read " + name, std::strerror(error), name == kStandardInput ? "" : "ls -l " + name};
}

class File : public ByteSource {
  public:
    File(base::UniqueFd fd, std::string name) : fd_(std::move(fd)), name_(std::move(name)) {}

    std::size_t Read(char* to, std::size_t room) override {
        if (!head_.empty()) {
            const std::size_t count = head_.copy(to, room);
            head_.erase(0, count);
            return count;
        }
        for (;;) {
            const ssize_t count = read(fd_.Get(), to, room);
            if (count >= 0) {
                return static_cast<std::size_t>(count);
            }
            if (errno != EINTR) {
                throw CannotRead(name_, errno);
            }
        }
    }

    // The first bytes, which Read yields all the same.
    std::string_view PeekHead() {
        char bytes[4];
        while (head_.size() < sizeof bytes) {
            const std::string known = std::exchange(head_, "");
            const std::size_t count = Read(bytes, sizeof bytes - known.size());
            head_ = known + std::string(bytes, count);
            if (count == 0) {
                break;
            }
        }
        return head_;
    }

  private:
    base::UniqueFd fd_;
    std::string name_;
    std::string head_;
};

base::UniqueFd Open(const std::string& path) {
    if (path == kStandardInput) {
        return base::UniqueFd(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
    }
    return base::UniqueFd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
}

}  // namespace

std::unique_ptr<ByteSource> OpenBytes(const std::string& path) {
    base::UniqueFd fd = Open(path);
    if (!fd) {
        throw CannotRead(path, errno);
    }
    posix_fadvise(fd.Get(), 0, 0, POSIX_FADV_SEQUENTIAL);  // a hint: what is no file may refuse it
    auto file = std::make_unique<File>(std::move(fd), path);
    const std::string_view head = file->PeekHead();
    if (head.starts_with(kGzipMagic)) {
        return Gunzip(std::move(file), path);
    }
    if (head.starts_with(kZstdMagic) ||
        (head.size() == 4 && (static_cast<unsigned char>(head[0]) >> 4U) == 5 &&
         head.substr(1) == kSkippableMagic)) {
        return Unzstd(std::move(file), path);
    }
    return file;
}

}  // namespace sizing
