#pragma once

#include "simulation/platform/section_document.h"

namespace vemo::platform {

// The sections of a file, parsed anew only when the file may have changed since this thread last read it:
// reading a file section by section costs one parse in all. Lives until the thread's next call. Null on
// failure: errno and the error slot say why.
const SectionDocument* LoadSections(const char* file);

}  // namespace vemo::platform
