// GLib's reader of section files, the baseline for ours.
#pragma once

#include <glib.h>

#include <memory>
#include <string>

#include "appliance.h"

namespace bench {

struct FreeGlib {
    void operator()(GKeyFile* file) const { g_key_file_free(file); }
    void operator()(gchar** texts) const { g_strfreev(texts); }
    void operator()(gchar* text) const { g_free(text); }
};

using KeyFile = std::unique_ptr<GKeyFile, FreeGlib>;
using GlibTexts = std::unique_ptr<gchar*, FreeGlib>;
using GlibText = std::unique_ptr<gchar, FreeGlib>;

inline KeyFile LoadKeyFile(const char* path) {
    KeyFile file(g_key_file_new());
    Require(g_key_file_load_from_file(file.get(), path, G_KEY_FILE_NONE, nullptr) != FALSE,
            std::string("GLib cannot read ") + path);
    return file;
}

}  // namespace bench
