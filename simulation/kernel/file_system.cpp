#include "simulation/kernel/file_system.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <system_error>

namespace simulation {

namespace {

FileSystem::Content& ContentOf(fuse_req_t request) {
    return *static_cast<FileSystem::Content*>(fuse_req_userdata(request));
}

// Runs one operation on the node of that number; what it throws, and a node that is gone, become the answer.
template <typename Operation>
void OnNode(fuse_req_t request, fuse_ino_t number, Operation operation) {
    try {
        Node* node = ContentOf(request).nodes.ByNumber(number);
        if (node == nullptr) {
            fuse_reply_err(request, ENOENT);
            return;
        }
        operation(*node);
    } catch (const std::system_error& error) {
        fuse_reply_err(request, error.code().value());
    } catch (const std::exception&) {
        fuse_reply_err(request, EIO);
    }
}

struct stat Attributes(const Node& node) {
    struct stat status{};
    status.st_ino = node.number;
    status.st_mode = node.mode;
    status.st_nlink = S_ISDIR(node.mode) ? 2 : 1;
    if (node.target != nullptr) {
        status.st_size = static_cast<off_t>(node.target->Size());
    }
    return status;
}

void Lookup(fuse_req_t request, fuse_ino_t parent, const char* name) {
    OnNode(request, parent, [&](Node& folder) {
        const Node* child = ContentOf(request).nodes.Child(folder, name);
        if (child == nullptr) {
            fuse_reply_err(request, ENOENT);
            return;
        }
        fuse_entry_param entry{};
        entry.ino = child->number;
        entry.attr = Attributes(*child);
        fuse_reply_entry(request, &entry);
    });
}

void GetAttributes(fuse_req_t request, fuse_ino_t number, fuse_file_info* /*file*/) {
    OnNode(request, number, [&](const Node& node) {
        const struct stat status = Attributes(node);
        fuse_reply_attr(request, &status, 0);
    });
}

// Programs open with O_TRUNC what they write; only a size of 0 means anything here.
void SetAttributes(fuse_req_t request, fuse_ino_t number, struct stat* wanted, int what,
                   fuse_file_info* /*file*/) {
    OnNode(request, number, [&](const Node& node) {
        if ((what & FUSE_SET_ATTR_SIZE) != 0 && wanted->st_size == 0 && node.truncate) {
            node.truncate();
        }
        const struct stat status = Attributes(node);
        fuse_reply_attr(request, &status, 0);
    });
}

void ReadFolder(fuse_req_t request, fuse_ino_t number, size_t size, off_t offset, fuse_file_info* /*file*/) {
    OnNode(request, number, [&](const Node& folder) {
        std::vector<std::string> names = Tree::Names(folder);
        names.insert(names.begin(), {".", ".."});
        std::vector<char> entries(size);
        size_t used = 0;
        for (auto i = static_cast<size_t>(offset); i < names.size(); ++i) {
            struct stat status{};
            status.st_ino = number + i + 1;
            const size_t length = fuse_add_direntry(request, entries.data() + used, size - used,
                                                    names[i].c_str(), &status, static_cast<off_t>(i + 1));
            if (length > size - used) {
                break;
            }
            used += length;
        }
        fuse_reply_buf(request, entries.data(), used);
    });
}

void ReadLink(fuse_req_t request, fuse_ino_t number) {
    OnNode(request, number, [&](const Node& node) { fuse_reply_readlink(request, node.link.c_str()); });
}

// A text is made once for each opening, so that its reader gets it in one piece.
void Open(fuse_req_t request, fuse_ino_t number, fuse_file_info* file) {
    OnNode(request, number, [&](const Node& node) {
        file->direct_io = 1;
        if (node.read && (file->flags & O_ACCMODE) != O_WRONLY) {
            FileSystem::Content& content = ContentOf(request);
            file->fh = ++content.lastText;
            content.texts[file->fh] = node.read();
        }
        fuse_reply_open(request, file);
    });
}

void Release(fuse_req_t request, fuse_ino_t /*number*/, fuse_file_info* file) {
    ContentOf(request).texts.erase(file->fh);
    fuse_reply_err(request, 0);
}

void Read(fuse_req_t request, fuse_ino_t number, size_t size, off_t start, fuse_file_info* file) {
    OnNode(request, number, [&](Node& node) {
        const auto offset = static_cast<uint64_t>(start);
        if (node.target != nullptr) {
            const uint64_t end = node.target->Size();
            std::vector<char>& block = ContentOf(request).block;
            block.resize(std::max(block.size(), size));
            const std::span<char> content(block.data(),
                                          std::min<uint64_t>(size, end - std::min(end, offset)));
            node.target->Read(offset, content);
            fuse_reply_buf(request, content.data(), content.size());
            return;
        }
        const std::string& text = ContentOf(request).texts[file->fh];
        const size_t from = std::min<uint64_t>(offset, text.size());
        fuse_reply_buf(request, text.data() + from, std::min(size, text.size() - from));
    });
}

void Write(fuse_req_t request, fuse_ino_t number, const char* data, size_t size, off_t start,
           fuse_file_info* /*file*/) {
    OnNode(request, number, [&](Node& node) {
        int error = 0;
        if (node.target != nullptr) {
            node.target->Write(static_cast<uint64_t>(start), {data, size});
        } else {
            error = node.write ? node.write({data, size}) : EACCES;
        }
        if (error != 0) {
            fuse_reply_err(request, error);
        } else {
            fuse_reply_write(request, size);
        }
    });
}

void Sync(fuse_req_t request, fuse_ino_t number, int /*dataOnly*/, fuse_file_info* /*file*/) {
    OnNode(request, number, [&](Node& node) {
        if (node.target != nullptr) {
            node.target->Sync();
        }
        fuse_reply_err(request, 0);
    });
}

void Allocate(fuse_req_t request, fuse_ino_t number, int mode, off_t offset, off_t length,
              fuse_file_info* /*file*/) {
    constexpr int kZeroing = FALLOC_FL_PUNCH_HOLE | FALLOC_FL_ZERO_RANGE;
    OnNode(request, number, [&](Node& node) {
        if (node.target == nullptr || (mode & kZeroing) == 0) {
            fuse_reply_err(request, EOPNOTSUPP);
            return;
        }
        node.target->Discard(static_cast<uint64_t>(offset), static_cast<uint64_t>(length));
        fuse_reply_err(request, 0);
    });
}

void Initialize(void* /*userdata*/, fuse_conn_info* connection) {
    constexpr unsigned kUnwanted =
        FUSE_CAP_SPLICE_READ | FUSE_CAP_SPLICE_WRITE | FUSE_CAP_SPLICE_MOVE | FUSE_CAP_ATOMIC_O_TRUNC;
    connection->want &= ~kUnwanted;
    connection->max_write = 1024 * 1024;
}

constexpr fuse_lowlevel_ops kOperations = [] {
    fuse_lowlevel_ops operations{};
    operations.init = Initialize;
    operations.lookup = Lookup;
    operations.getattr = GetAttributes;
    operations.setattr = SetAttributes;
    operations.readdir = ReadFolder;
    operations.readlink = ReadLink;
    operations.open = Open;
    operations.release = Release;
    operations.read = Read;
    operations.write = Write;
    operations.fsync = Sync;
    operations.fallocate = Allocate;
    return operations;
}();

}  // namespace

FileSystem::FileSystem(Tree& tree, int fuseFd) : content_{tree, {}} {
    char name[] = "vemo-kernel";
    char* arguments[] = {name, nullptr};
    fuse_args args = FUSE_ARGS_INIT(1, arguments);
    const std::unique_ptr<fuse_args, decltype(&fuse_opt_free_args)> copies(&args, fuse_opt_free_args);
    session_.reset(fuse_session_new(&args, &kOperations, sizeof kOperations, &content_));
    const std::string mountpoint = "/dev/fd/" + std::to_string(fuseFd);
    if (!session_ || fuse_session_mount(session_.get(), mountpoint.c_str()) != 0) {
        throw std::runtime_error("the simulated kernel's file system cannot be served");
    }
}

FileSystem::~FileSystem() {
    std::free(buffer_.mem);
}

bool FileSystem::ServeOne() {
    const int length = fuse_session_receive_buf(session_.get(), &buffer_);
    if (length > 0) {
        fuse_session_process_buf(session_.get(), &buffer_);
    }
    return (length > 0 || length == -EINTR || length == -EAGAIN) && fuse_session_exited(session_.get()) == 0;
}

}  // namespace simulation
