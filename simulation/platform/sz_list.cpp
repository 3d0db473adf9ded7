#include "simulation/platform/sz_list.h"

#include <type_traits>

#include "simulation/platform/errors.h"

using namespace vemo::platform;

static_assert(std::is_standard_layout_v<VLIBC_SZLIST>, "the count is found at the list's own address");

// A list grows as it is filled: the capacity says nothing that we need.
VLIBC_SZLIST* VLIBCSzListAlloc(int /*capacity*/) {
    return Guard(static_cast<VLIBC_SZLIST*>(nullptr), [] { return new VLIBC_SZLIST; });
}

const char* VLIBCSzListGet(const VLIBC_SZLIST* list, int index) {
    if (list == nullptr || index < 0 || index >= list->count) return nullptr;
    return list->items[static_cast<size_t>(index)].data();
}

int VLIBCSzListFind(const VLIBC_SZLIST* list, const char* text) {
    if (list == nullptr || text == nullptr) return -1;
    const std::string_view wanted = text;
    for (int i = 0; i < list->count; ++i) {
        if (list->items[static_cast<size_t>(i)] == wanted) return i;
    }
    return -1;
}

void VLIBCSzListFree(VLIBC_SZLIST* list) {
    delete list;
}

int VLIBCStrTok(const char* text, const char* separators, VLIBC_SZLIST** list) {
    if (text == nullptr || separators == nullptr || list == nullptr) return Fail(VLIBC_ERR_BAD_PARAMETER);
    return Guard(-1, [&] {
        if (*list == nullptr) *list = new VLIBC_SZLIST;
        const int before = (*list)->count;
        const std::string_view all = text;
        size_t end = 0;
        for (size_t begin = 0; (begin = all.find_first_not_of(separators, end)) != all.npos;) {
            end = std::min(all.find_first_of(separators, begin), all.size());
            (*list)->Add(all.substr(begin, end - begin));
        }
        return (*list)->count - before;
    });
}
