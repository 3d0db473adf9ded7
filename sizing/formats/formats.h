// The formats by name, and recognising them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "sizing/formats/reader.h"

namespace sizing {

// "blkparse", "blktrace", "fio" and so on: what users call them.
std::string_view NameOf(Format format);
std::optional<Format> FormatByName(std::string_view name);
std::vector<std::string> FormatNames();

// A reader of the file by its contents, or by the format that the options tell. None of a file that is empty.
// Throws Failure when it is of no known format.
std::unique_ptr<Reader> MakeReader(ByteBuffer bytes, const std::string& file, ReadContext& context);

}  // namespace sizing
