#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace simulation {

// What a block device is made of: the loop device over the file that carries it reads and writes through
// this. Failures are thrown as std::system_error.
class BlockTarget {
  public:
    virtual ~BlockTarget() = default;
    virtual uint64_t Size() const = 0;
    virtual void Read(uint64_t offset, std::span<char> into) = 0;
    virtual void Write(uint64_t offset, std::span<const char> from) = 0;
    virtual void Discard(uint64_t offset, uint64_t length) = 0;
    // On return everything written before survives a crash.
    virtual void Sync() = 0;
};

// One file, folder or link of the simulated kernel's file system. A file is a text that is made when it is
// opened, or a block target.
struct Node {
    uint64_t number = 0;
    mode_t mode = 0;
    std::function<std::string()> read;
    std::function<int(std::string_view)> write;  // result: an errno, 0 done
    std::function<void()> truncate;
    BlockTarget* target = nullptr;
    std::string link;
    std::map<std::string, Node*> children;
    // For a folder that shows more than its children: whether it holds a name, and what names it holds.
    std::function<bool(const std::string&)> holds;
    std::function<std::vector<std::string>()> moreNames;
    std::string moreLinks;  // such a name is a link to it under this prefix
};

// All nodes, by number and by path.
class Tree {
  public:
    Tree();
    Node* ByNumber(uint64_t number);
    Node& Root() { return *ByNumber(1); }

    // Adds a node; folders on the way are made. `path` is relative to the root.
    Node& AddFolder(const std::string& path) { return Reach(path); }
    Node& AddText(const std::string& path, std::function<std::string()> read,
                  std::function<int(std::string_view)> write = nullptr);
    Node& AddTarget(const std::string& path, BlockTarget& target);
    // Removes a node with all below it; no matter if it is not there.
    void Remove(const std::string& path);

    // The node of that name in a folder, NULL when there is none.
    Node* Child(Node& folder, const std::string& name);
    // The names in a folder, without "." and "..".
    static std::vector<std::string> Names(const Node& folder);

  private:
    Node& Add(Node& folder, const std::string& name, mode_t mode);
    Node& Reach(const std::string& path);
    Node& AddFile(const std::string& path, mode_t mode);
    void Forget(Node& node);

    std::unordered_map<uint64_t, std::unique_ptr<Node>> nodes_;
    uint64_t lastNumber_ = 0;
};

}  // namespace simulation
