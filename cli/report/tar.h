// Archives: files behind one another in the ustar format, and the compression around them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace cli {

// The bytes of a tar archive, file by file.
class TarWriter {
  public:
    // `time` in seconds since 1970, of all files.
    explicit TarWriter(std::int64_t time) : time_(time) {}

    // A file that its owner alone may read. Throws std::invalid_argument for a name that the format has no
    // room for: of more than 100 bytes with no "/" at which 155 and 100 are left.
    void Add(std::string_view name, std::string_view content);

    // All of it, with the mark of its end.
    [[nodiscard]] std::string Take();

  private:
    std::int64_t time_;
    std::string bytes_;
};

// As gzip has it. Throws std::runtime_error when there is no memory for it.
std::string Gzipped(std::string_view bytes);

}  // namespace cli
