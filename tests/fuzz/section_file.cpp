// Section files: what is written reads back, and what was not named stays as it was, byte for byte.
#include <memory>

#include "fuzz/target.h"
#include "platform/vemocore.h"
#include "support/private_folder.h"

namespace {

using Hash = std::unique_ptr<VLIBC_SZHASH, decltype(&VLIBCSzHashFree)>;

constexpr const char* kName = "written+here";

// What a key of a section holds; empty also where there is none.
std::string ValueOf(const std::string& file, const char* section, const char* key) {
    Hash hash(VLIBCSzHashAlloc(8), VLIBCSzHashFree);
    VLIBC_SZHASH* out = hash.get();
    if (VLIBCFileGetSection(file.c_str(), section, &out) <= 0) {
        return "";
    }
    const char* value = VLIBCSzHashGetValue(hash.get(), key);
    return value == nullptr ? "" : value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const PrivateFolder folder;
    const std::string file = folder / "file";
    WriteText(file, fuzz::TextOf(data, size));
    while (VLIBCFileRemoveSection(file.c_str(), kName) == 1) {
    }
    const std::string before = ReadText(file);
    const std::string other = ValueOf(file, "md3+volume_1", "WriteMode");

    VLIBC_SZHASH* keys = VLIBCSzHashAlloc(8);
    VLIBCSzHashSetValue(&keys, "WriteMode", "back");
    const int added = VLIBCFileAddSection(file.c_str(), kName, keys, "\t%s=%s\n");
    VLIBCSzHashFree(keys);
    const std::string after = ReadText(file);
    if (added <= 0) {
        fuzz::Require(after == before, "a file that could not be changed is as it was");
        return 0;
    }
    fuzz::Require(after.starts_with(before), "what was there is as it was");
    fuzz::Require(ValueOf(file, kName, "WriteMode") == "back", "what is written reads back");
    fuzz::Require(ValueOf(file, "md3+volume_1", "WriteMode") == other, "another section is as it was");
    fuzz::Require(VLIBCFileRemoveSection(file.c_str(), kName) == 1, "it can be removed");
    const std::string left = ReadText(file);
    fuzz::Require(left == before || left == before + "\n", "and nothing else is");
    return 0;
}
