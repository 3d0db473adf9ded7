#include "simulation/platform/sz_hash.h"

#include "simulation/platform/errors.h"

using namespace vemo::platform;

// A hash grows as it is filled: the capacity says nothing that we need.
VLIBC_SZHASH* VLIBCSzHashAlloc(int /*capacity*/) {
    return Guard(static_cast<VLIBC_SZHASH*>(nullptr), [] { return new VLIBC_SZHASH; });
}

int VLIBCSzHashSetValue(VLIBC_SZHASH** hash, const char* key, const char* value) {
    if (hash == nullptr || key == nullptr || value == nullptr) return Fail(VLIBC_ERR_BAD_PARAMETER);
    return Guard(-1, [&] {
        if (*hash == nullptr) *hash = new VLIBC_SZHASH;
        (*hash)->Set(key, value);
        return 0;
    });
}

const char* VLIBCSzHashGetValue(const VLIBC_SZHASH* hash, const char* key) {
    const TextMap::Entry* const entry = hash == nullptr || key == nullptr ? nullptr : hash->map.Find(key);
    return entry == nullptr ? nullptr : entry->value.data();
}

void VLIBCHashRemoveAll(VLIBC_SZHASH* hash) {
    if (hash == nullptr) return;
    hash->map.Clear();
    hash->texts.Clear();
}

void VLIBCSzHashFree(VLIBC_SZHASH* hash) {
    delete hash;
}
