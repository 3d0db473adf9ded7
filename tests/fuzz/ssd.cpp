// What lies on an SSD: a superblock and its list of blocks, or anything else.
#include "caches/ssd_content.h"
#include "fuzz/target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::MemoryFile file(fuzz::TextOf(data, size));
    const auto content = cli::ReadSsdContent(file.Path());
    if (content && content->dirtyBlocks) {
        fuzz::Require(*content->dirtyBlocks <= content->blocks, "no more blocks are dirty than there are");
    }
    return 0;
}
