// Section files: what is written reads back, and what was not named stays as it was, byte for byte.
#include <algorithm>
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

// The input's first line, where a section may hold such a value.
std::string ValueIn(std::string_view text) {
    const std::string_view line = text.substr(0, text.find('\n'));
    const bool plain = !line.empty() && line.front() > ' ' && line.back() > ' ' &&
                       std::all_of(line.begin(), line.end(), [](char c) { return c >= ' ' || c < 0; });
    return plain ? std::string(line) : "back";
}

// Sets a key of a section that is there: that reads back, and whatever is not of that section is as it was.
void Replace(const std::string& file, std::string_view text) {
    constexpr const char* kSection = "md3+volume_1";
    WriteText(file, text);
    const std::string value = ValueIn(text);
    VLIBC_SZHASH* keys = VLIBCSzHashAlloc(8);
    VLIBCSzHashSetValue(&keys, "FlushState", value.c_str());
    const int set = VLIBCFileSetSection(file.c_str(), kSection, nullptr, keys, "\t%s = %s\n");
    VLIBCSzHashFree(keys);
    if (set <= 0) {
        fuzz::Require(ReadText(file) == text, "a file that could not be changed is as it was");
        return;
    }
    fuzz::Require(ValueOf(file, kSection, "FlushState") == value, "what is written reads back");
    VLIBCFileRemoveSection(file.c_str(), kSection);
    const std::string left = ReadText(file);
    WriteText(file, text);
    VLIBCFileRemoveSection(file.c_str(), kSection);
    const std::string expected = ReadText(file);
    fuzz::Require(left == expected || left == expected + "\n", "nothing but the section changes");
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
    Replace(file, fuzz::TextOf(data, size));
    return 0;
}
