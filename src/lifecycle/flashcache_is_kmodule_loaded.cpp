// Whether a kernel module is loaded.

#include "common/guard.h"
#include "common/handle.h"
#include "common/line_reader.h"
#include "common/log.h"
#include "common/text.h"
#include "vemoflashcache.h"

namespace flashcache {
namespace {

int IsListed(const char* name) {
    const ChildStream modules(VLIBCPopen("/sbin/lsmod", "r", nullptr));
    if (!modules) {
        LogError()("/sbin/lsmod failed");
        return 0;
    }
    // The blank tells "flashcache" from "flashcache_vemo".
    const std::string pattern = FormatCut(512, "%s ", name);
    LineReader lines(modules.get());
    while (const char* line = lines.Next()) {
        if (Contains(line, pattern)) {
            return 1;
        }
    }
    return 0;
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCacheIsKModuleLoad(const char* name) {
    if (name == nullptr) {
        LogError()("Module name should not be NULL");
        return 0;
    }
    return Guarded(0, [&] { return IsListed(name); });
}
