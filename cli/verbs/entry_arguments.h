// The arguments of the verbs that make an entry.
#pragma once

#include <string>

#include "caches/fresh_pair.h"
#include "verbs/verb.h"

namespace cli {

inline Argument EntryNameArgument(std::string& name) {
    return {.name = "--name",
            .help = "name of its configuration entry; default: SSD+VOLUME, shortened",
            .target = &name,
            .check = CheckEntryName,
            .valueName = "NAME"};
}

inline Argument MountPathArgument(std::string& mountPath) {
    return {.name = "--mount",
            .help = "mount path of the volume; default: /volumeN for volume_N",
            .target = &mountPath,
            .completion = Completion::kFolder,
            .valueName = "FOLDER"};
}

}  // namespace cli
