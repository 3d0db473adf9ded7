// A file that appears whole or not at all.
#pragma once

#include <string>
#include <string_view>

#include "base/unique_fd.h"

namespace cli {

class NewFile {
  public:
    // Sees that the file can be made, before any work is done for it: throws a Failure when something lies
    // there already, unless `replaces` and that is a regular file, and when its folder takes no file.
    NewFile(std::string path, bool replaces);

    // Puts the content there, for its owner alone to read. Until then nothing shows, and nothing is left when
    // the process ends. Throws a Failure.
    void Write(std::string_view content);

  private:
    void RequireFree() const;
    void Appear();
    [[noreturn]] void Fail(const std::string& why) const;

    std::string path_;
    std::string folder_;
    bool replaces_;
    std::string temporary_;  // where the file system knows no file without a name
    base::UniqueFd file_;
};

}  // namespace cli
