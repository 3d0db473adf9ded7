// The files that show the simulated kernel.
#include <dirent.h>
#include <fcntl.h>

#include <algorithm>

#include "base/unique_fd.h"
#include "simulation/kernel/kernel.h"

namespace simulation {

namespace {

constexpr int kModuleSize = 126976;

std::string KernelName(const Cache& cache) {
    return cache.Ssd().ShortName() + "+" + cache.Space().ShortName();
}

std::string InfoFolder(const Cache& cache) {
    return "proc/flashcache/" + KernelName(cache);
}

std::string KnobFolder(const Cache& cache) {
    return "proc/sys/dev/flashcache_" + KernelName(cache);
}

std::vector<std::string> FolderNames(int parent, const char* path) {
    std::vector<std::string> names;
    base::UniqueFd folder(openat(parent, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(folder ? fdopendir(folder.Get()) : nullptr, closedir);
    if (stream) {
        folder.Release();  // it is the stream's now
    }
    while (const dirent* entry = stream ? readdir(stream.get()) : nullptr) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    return names;
}

}  // namespace

// The real subtrees of /proc/sys but "dev" are mounted over empty folders, since sysctl follows no link out.
void Kernel::AddProc() {
    Node& proc = tree_.AddFolder("proc");
    const int real = realProc_.Get();
    proc.moreLinks = ".kernel/";
    proc.holds = [real](const std::string& name) {
        return faccessat(real, name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
    };
    proc.moreNames = [real] { return FolderNames(real, "."); };
    tree_.AddFolder("proc/.kernel");
    tree_.AddFolder("proc/sys/dev");
    for (const std::string& name : FolderNames(real, "sys")) {
        tree_.AddFolder("proc/sys/" + name);
    }
    tree_.AddText("proc/modules", [this] { return ModuleList(); });
}

std::string Kernel::ModuleList() const {
    std::string list;
    for (auto name = modules_.rbegin(); name != modules_.rend(); ++name) {
        list += *name + " " + std::to_string(kModuleSize) + " " + std::to_string(caches_.size()) +
                " - Live 0x0000000000000000\n";
    }
    return list;
}

void Kernel::AddModuleFiles(const std::string& name) {
    const std::string folder = "module/" + name;
    tree_.AddFolder(folder + "/holders");
    tree_.AddText(folder + "/coresize", [] { return std::to_string(kModuleSize) + "\n"; });
    tree_.AddText(folder + "/refcnt", [this] { return std::to_string(caches_.size()) + "\n"; });
    tree_.AddText(folder + "/initstate", [] { return "live\n"; });
}

void Kernel::AddInfoFile(const std::string& folder, const std::string& name,
                         std::function<std::string()> read, std::function<int(std::string_view)> write) {
    tree_.AddText(
        folder + "/" + name,
        [this, name, path = folder + "/" + name, read = std::move(read)] {
            const auto held = heldTexts_.find(path);
            if (held != heldTexts_.end()) {
                return held->second;
            }
            const auto forced = forcedTexts_.find(name);
            return forced != forcedTexts_.end() ? forced->second : read();
        },
        std::move(write));
}

void Kernel::AddKnobFile(const std::string& folder, Knob knob, Cache& cache) {
    const std::string name(kKnobs[static_cast<size_t>(knob)].name);
    tree_.AddText(
        folder + "/" + name, [&cache, knob] { return cache.KnobText(knob); },
        [this, &cache, knob, name](std::string_view text) {
            const std::string any = faults_.Take("knob.*");
            const std::string own = faults_.Take("knob." + name);
            return any.empty() && own.empty() ? cache.SetKnob(knob, text) : EIO;
        });
}

void Kernel::AddCacheFiles(const std::string& name, Cache& cache) {
    BlockTarget& target = *(traced_[name] = trace_.Around(cache, name));
    tree_.AddTarget("data/" + name, target);
    const std::string folder = InfoFolder(cache);
    AddInfoFile(folder, "flashcache_stats", [&cache] { return cache.Stats(); });
    AddInfoFile(folder, "flashcache_errors", [&cache] { return cache.Errors(); });
    AddInfoFile(folder, "flashcache_progress", [&cache] { return cache.Progress(); });
    AddInfoFile(
        folder, "flashcache_attribute", [&cache] { return cache.Attribute(); },
        [&cache](std::string_view text) { return cache.SetAttribute(text); });
    for (size_t i = 0; i < kKnobs.size(); ++i) {
        AddKnobFile(KnobFolder(cache), static_cast<Knob>(i), cache);
    }
}

void Kernel::RemoveCacheFiles(const std::string& name, const Cache& cache) {
    tree_.Remove("data/" + name);
    tree_.Remove(InfoFolder(cache));
    tree_.Remove(KnobFolder(cache));
}

}  // namespace simulation
