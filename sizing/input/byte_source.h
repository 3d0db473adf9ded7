// The bytes of a trace, decompressed.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace sizing {

class ByteSource {
  public:
    ByteSource() = default;
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;
    virtual ~ByteSource() = default;

    // Reads up to `room` bytes, at least one unless it is the end: 0. Throws Failure where no more can be
    // read, once all that could be was handed out.
    virtual std::size_t Read(char* to, std::size_t room) = 0;
};

// The name of standard input.
inline constexpr const char* kStandardInput = "-";

// Opens a file, or standard input. What gzip or zstd wrote is recognised by its first bytes. Throws Failure.
std::unique_ptr<ByteSource> OpenBytes(const std::string& path);

// For OpenBytes: decompress what `packed` yields, whose name is for messages.
std::unique_ptr<ByteSource> Gunzip(std::unique_ptr<ByteSource> packed, std::string name);
std::unique_ptr<ByteSource> Unzstd(std::unique_ptr<ByteSource> packed, std::string name);

}  // namespace sizing
