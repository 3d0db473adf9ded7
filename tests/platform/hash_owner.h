// Hashes and lists of the platform, owned, and filled and read the short way.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/vemocore.h"

struct HashFree {
    void operator()(VLIBC_SZHASH* hash) const { VLIBCSzHashFree(hash); }
};
using HashOwner = std::unique_ptr<VLIBC_SZHASH, HashFree>;
using Pairs = std::vector<std::pair<std::string, std::string>>;

inline HashOwner MakeHash(const Pairs& pairs = {}) {
    VLIBC_SZHASH* hash = VLIBCSzHashAlloc(1024);
    for (const auto& [key, value] : pairs) VLIBCSzHashSetValue(&hash, key.c_str(), value.c_str());
    return HashOwner(hash);
}

// A key of a section; "(none)" when the section or the key is not there.
inline std::string SectionValue(const std::string& file, const char* section, const char* key) {
    VLIBC_SZHASH* hash = VLIBCSzHashAlloc(0);
    VLIBCFileGetSection(file.c_str(), section, &hash);
    const HashOwner owner(hash);
    const char* const value = VLIBCSzHashGetValue(hash, key);
    return value == nullptr ? "(none)" : value;
}

inline std::vector<std::string> SectionNames(const std::string& file) {
    VLIBC_SZLIST* list = VLIBCSzListAlloc(0);
    std::vector<std::string> names;
    const int count = VLIBCFileEnumSection(file.c_str(), &list);
    for (int i = 0; i < count; ++i) names.emplace_back(VLIBCSzListGet(list, i));
    VLIBCSzListFree(list);
    return names;
}
