#include "simulation/kernel/tree.h"

namespace simulation {

namespace {

std::pair<std::string, std::string> SplitLast(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::pair(std::string(), path)
                                      : std::pair(path.substr(0, slash), path.substr(slash + 1));
}

}  // namespace

Tree::Tree() {
    auto root = std::make_unique<Node>();
    root->number = ++lastNumber_;
    root->mode = S_IFDIR | 0755;
    nodes_[root->number] = std::move(root);
}

Node* Tree::ByNumber(uint64_t number) {
    const auto found = nodes_.find(number);
    return found == nodes_.end() ? nullptr : found->second.get();
}

Node& Tree::Add(Node& folder, const std::string& name, mode_t mode) {
    auto node = std::make_unique<Node>();
    node->number = ++lastNumber_;
    node->mode = mode;
    Node& added = *node;
    nodes_[added.number] = std::move(node);
    folder.children[name] = &added;
    return added;
}

Node& Tree::Reach(const std::string& path) {
    if (path.empty()) {
        return Root();
    }
    const auto [folder, name] = SplitLast(path);
    Node& parent = Reach(folder);
    const auto found = parent.children.find(name);
    return found != parent.children.end() ? *found->second : Add(parent, name, S_IFDIR | 0755);
}

Node& Tree::AddFile(const std::string& path, mode_t mode) {
    const auto [folder, name] = SplitLast(path);
    return Add(Reach(folder), name, S_IFREG | mode);
}

Node& Tree::AddText(const std::string& path, std::function<std::string()> read,
                    std::function<int(std::string_view)> write) {
    Node& node = AddFile(path, write ? 0644 : 0444);
    node.read = std::move(read);
    node.write = std::move(write);
    return node;
}

Node& Tree::AddTarget(const std::string& path, BlockTarget& target) {
    Node& node = AddFile(path, 0600);
    node.target = &target;
    return node;
}

void Tree::Remove(const std::string& path) {
    const auto [folder, name] = SplitLast(path);
    Node& parent = Reach(folder);
    const auto found = parent.children.find(name);
    if (found != parent.children.end()) {
        Node& node = *found->second;
        parent.children.erase(found);
        Forget(node);
    }
}

void Tree::Forget(Node& node) {
    for (const auto& [name, child] : node.children) {
        Forget(*child);
    }
    nodes_.erase(node.number);
}

Node* Tree::Child(Node& folder, const std::string& name) {
    const auto found = folder.children.find(name);
    if (found != folder.children.end()) {
        Node* child = found->second;
        if (!S_ISLNK(child->mode) || folder.holds(name)) {
            return child;
        }
        folder.children.erase(found);
        Forget(*child);
        return nullptr;
    }
    if (!folder.holds || !folder.holds(name)) {
        return nullptr;
    }
    Node& link = Add(folder, name, S_IFLNK | 0777);
    link.link = folder.moreLinks + name;
    return &link;
}

std::vector<std::string> Tree::Names(const Node& folder) {
    std::vector<std::string> names;
    for (const auto& [name, child] : folder.children) {
        if (!S_ISLNK(child->mode)) {
            names.push_back(name);
        }
    }
    if (folder.moreNames) {
        for (std::string& name : folder.moreNames()) {
            const auto found = folder.children.find(name);
            if (found == folder.children.end() || S_ISLNK(found->second->mode)) {
                names.push_back(std::move(name));
            }
        }
    }
    return names;
}

}  // namespace simulation
