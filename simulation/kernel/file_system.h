#pragma once

#define FUSE_USE_VERSION 314
#include <fuse3/fuse_lowlevel.h>

#include <memory>
#include <string>
#include <unordered_map>

#include "simulation/kernel/tree.h"

namespace simulation {

// Serves a tree of nodes over FUSE. Everything goes past the page cache, so that a reader always sees the
// present and a block target is asked for every block.
class FileSystem {
  public:
    // `fuseFd` is an open /dev/fuse, mounted by whoever gave it; it is closed with this.
    FileSystem(Tree& tree, int fuseFd);
    ~FileSystem();
    FileSystem(const FileSystem&) = delete;
    FileSystem& operator=(const FileSystem&) = delete;

    int Fd() const { return fuse_session_fd(session_.get()); }
    // Takes one request, waiting for it if need be, and answers it. False once the file system is unmounted.
    bool ServeOne();

    // What the operations work on: the nodes, and the texts of the open files.
    struct Content {
        Tree& nodes;
        std::unordered_map<uint64_t, std::string> texts;
        uint64_t lastText = 0;
        // What is read of a block target; kept, as fresh memory costs more than copying.
        // NOLINTNEXTLINE(readability-redundant-member-init): g++ warns of one that is left out.
        std::vector<char> block = {};
    };

  private:
    struct Destroy {
        void operator()(fuse_session* session) const { fuse_session_destroy(session); }
    };
    Content content_;
    std::unique_ptr<fuse_session, Destroy> session_;
    fuse_buf buffer_{};
};

}  // namespace simulation
