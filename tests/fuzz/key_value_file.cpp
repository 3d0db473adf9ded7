// Files of keys and values: what is written reads back, and no other key changes.
#include "fuzz/target.h"
#include "platform/vemocore.h"
#include "support/private_folder.h"

namespace {

std::string ValueOf(const std::string& file, const char* key) {
    char value[256] = "";
    return VLIBCFileGetKeyValue(file.c_str(), key, value, sizeof value, 0) > 0 ? value : "";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const PrivateFolder folder;
    const std::string file = folder / "file";
    WriteText(file, fuzz::TextOf(data, size));
    const std::string other = ValueOf(file, "support");
    if (VLIBCFileSetKeyValue(file.c_str(), "written", "a value", 0) < 0) {
        fuzz::Require(ReadText(file) == fuzz::TextOf(data, size),
                      "a file that could not be changed is as it was");
        return 0;
    }
    fuzz::Require(ValueOf(file, "written") == "a value", "what is written reads back");
    fuzz::Require(ValueOf(file, "support") == other, "no other key changes");
    return 0;
}
