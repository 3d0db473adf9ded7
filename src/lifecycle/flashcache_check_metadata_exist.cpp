// Whether an SSD carries cache metadata.

#include "common/guard.h"
#include "common/handle.h"
#include "common/line_reader.h"
#include "common/log.h"
#include "common/text.h"
#include "lifecycle/lifecycle.h"
#include "vemoflashcache.h"

namespace flashcache {
namespace {

int CheckMetadata(const char* ssdPath) {
    const ChildStream tool(VLIBCPopen(kLoadTool, "rE", "-c", ssdPath, nullptr));
    if (!tool) {
        LogError()("Popen failed, cmd = %s", FormatCut(512, "%s -c %s", kLoadTool, ssdPath).c_str());
        return 0;
    }
    LineReader lines(tool.get());
    while (const char* line = lines.Next()) {
        LogError()("%s", line);
        if (Contains(line, "metadata existed")) {
            return 1;
        }
    }
    return 0;
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCacheCheckMetadataExist(const char* ssdPath) {
    if (ssdPath == nullptr) {
        LogError()("Bad parameters");
        return 0;
    }
    return Guarded(0, [&] { return CheckMetadata(ssdPath); });
}
