#include "simulation/launcher/root.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>

#include "simulation/common/checked.h"
#include "simulation/common/programs.h"
#include "simulation/kernel/kernel.h"
#include "simulation/launcher/mounts.h"

namespace simulation {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kToolFault = "tool.";

const std::string kNewRoot = std::string(kStage) + "/root";
void MakeNode(const char* name, unsigned majorNumber, unsigned minorNumber) {
    const std::string path = std::string(kStageDev) + "/" + name;
    Checked(mknod(path.c_str(), S_IFCHR | 0666, makedev(majorNumber, minorNumber)), path);
    Checked(chmod(path.c_str(), 0666), path);
}

void MakeDev() {
    for (const char* folder : {"", "/mapper", "/pts", "/shm"}) {
        fs::create_directories(std::string(kStageDev) + folder);
    }
    MakeNode("null", 1, 3);
    MakeNode("zero", 1, 5);
    MakeNode("full", 1, 7);
    MakeNode("random", 1, 8);
    MakeNode("urandom", 1, 9);
    MakeNode("tty", 5, 0);
    MakeNode("ptmx", 5, 2);
    MakeNode("loop-control", 10, 237);
    const std::string dev = std::string(kStageDev) + "/";
    fs::create_symlink("/proc/self/fd", dev + "fd");
    fs::create_symlink("/proc/self/fd/0", dev + "stdin");
    fs::create_symlink("/proc/self/fd/1", dev + "stdout");
    fs::create_symlink("/proc/self/fd/2", dev + "stderr");
}

// The machine's other file systems, as far as the appliance has no own in their place.
void AttachOtherMounts(const std::vector<std::string>& points) {
    std::vector<std::string> attached = {"/proc", "/sys", "/dev", "/run"};
    for (const std::string& point : points) {
        const bool covered =
            point == "/" || std::any_of(attached.begin(), attached.end(),
                                        [&](const auto& above) { return IsWithin(point, above); });
        if (covered) {
            continue;
        }
        try {
            DetachedMount(point).AttachAt(kNewRoot + point);
            attached.push_back(point);
        } catch (const std::system_error&) {
            continue;  // hidden under another, or not to be copied: the appliance does without
        }
    }
}

// What is set below /proc, but for the caches' knobs, would be set for the whole machine.
void AttachProc() {
    const std::string proc = kNewRoot + "/proc";
    DetachedMount(std::string(kStageKernel) + "/proc").AttachAt(proc);
    Mount("proc", proc + "/.kernel", "proc", 0, "");
    const DetachedMount net(proc + "/.kernel/sys/net");  // the appliance's own, so it may be set
    for (const char* name : {"acpi", "bus", "fs", "irq", "scsi", "sys", "sysrq-trigger"}) {
        const std::string path = proc + "/.kernel/" + name;
        if (fs::exists(path)) {
            DetachedMount(path).MakeReadOnly().AttachAt(path);
        }
    }
    for (const auto& entry : fs::directory_iterator(proc + "/.kernel/sys")) {
        const std::string name = entry.path().filename();
        if (name != "dev") {
            const std::string target = proc + "/sys/" + name;
            name == "net" ? net.AttachAt(target) : DetachedMount(entry.path()).AttachAt(target);
        }
    }
}

// A fresh /tmp, with what is needed of the machine's showing through.
void ReplaceTmp(const std::vector<std::string>& neededPaths) {
    std::vector<std::pair<std::string, DetachedMount>> needed;
    for (const std::string& path : neededPaths) {
        const bool shown = path != "/tmp" && IsWithin(path, "/tmp") && fs::exists(kNewRoot + path);
        if (shown) {
            needed.emplace_back(path, DetachedMount(kNewRoot + path));
        }
    }
    const std::string tmp = kNewRoot + "/tmp";
    fs::create_directories(tmp);
    MountTmpfs(tmp, "1777");
    for (const auto& [path, tree] : needed) {
        if (!fs::exists(kNewRoot + path)) {
            fs::create_directories(kNewRoot + path);
        }
        tree.AttachAt(kNewRoot + path);
    }
}

void AttachKernelFile(const std::string& name, const std::string& target) {
    fs::create_directories(fs::path(target).parent_path());
    std::ofstream(target, std::ios::app).flush();
    DetachedMount(std::string(kStageKernel) + "/" + name).AttachAt(target);
}

void AttachFolder(const std::string& kept, const std::string& target) {
    fs::create_directories(target);
    if (!kept.empty()) {
        DetachedMount(kept).AttachAt(target);
    }
}

// One file under all names: each boot writes it anew.
void InstallPrograms(const fs::path& source) {
    for (const std::string_view program : kAppliancePrograms) {
        const fs::path target = kNewRoot + std::string(program);
        fs::create_directories(target.parent_path());
        fs::remove(target);
        if (program == kAppliancePrograms.front()) {
            fs::copy_file(source, target);
        } else {
            fs::create_hard_link(kNewRoot + std::string(kAppliancePrograms.front()), target);
        }
    }
}

// Our libraries, those of the appliance's maker among them, where every program looks for libraries.
void LinkLibraries(const std::string& folder) {
    std::error_code absent;
    for (const auto& entry : fs::directory_iterator(folder, absent)) {
        const std::string name = entry.path().filename();
        const fs::path link = kNewRoot + "/usr/lib/" + name;
        if (name.starts_with("libvemo") && name.find(".so") != std::string::npos && !fs::exists(link)) {
            fs::create_symlink(entry.path(), link);
        }
    }
}

// The appliance's own programs, libraries and folders.
void Furnish(const RootPlan& plan) {
    const fs::path root = kNewRoot;
    InstallPrograms(plan.installPrefix + "/" VEMO_TOOL_FILE);
    fs::create_directories(root / "lib/modules");
    for (const char* module : kModules) {
        std::ofstream(root / "lib/modules" / (std::string(module) + ".ko")) << module << "\n";
    }
    fs::create_directories(root / "volume1");
    for (const auto& entry : fs::directory_iterator(plan.installPrefix + "/" VEMO_DEFAULTS_FOLDER)) {
        fs::copy_file(entry, root / "etc.defaults" / entry.path().filename(),
                      fs::copy_options::skip_existing);
    }
    const fs::path ownProgram = fs::read_symlink("/proc/self/exe");
    if (!fs::exists(root / "usr/bin" / ownProgram.filename())) {
        fs::create_symlink(ownProgram, root / "usr/bin" / ownProgram.filename());
    }
    for (const char* folder : {"/lib", "/" VEMO_LIBRARY_FOLDER}) {
        LinkLibraries(plan.installPrefix + folder);
    }
}

}  // namespace

void EnterStage() {
    Checked(unshare(CLONE_NEWNS), "a mount namespace");
    Mount("", "/", nullptr, MS_REC | MS_PRIVATE, "");
    MountTmpfs(kStage, "755");
    for (const char* folder : {"/root", "/upper", "/work", "/kernel"}) {
        fs::create_directory(std::string(kStage) + folder);
    }
    MakeDev();
}

void StandBefore(std::string_view faultName) {
    for (const std::string_view program : kMachinePrograms) {
        const std::string path(program);
        const bool isMeant = faultName.substr(0, faultName.find('.', kToolFault.size())) ==
                             std::string(kToolFault) + path.substr(path.rfind('/') + 1);
        if (isMeant && fs::exists(path) && !fs::exists(path + kRealSuffix)) {
            fs::rename(path, path + kRealSuffix);
            fs::create_hard_link(kAppliancePrograms.front(), path);
        }
    }
}

void EnterRoot(const RootPlan& plan) {
    const std::vector<std::string> points = MountPoints();
    const std::string stage = kStage;
    Mount("vemo-appliance", kNewRoot, "overlay", 0,
          "lowerdir=/,upperdir=" + stage + "/upper,workdir=" + stage + "/work");
    AttachOtherMounts(points);
    ReplaceTmp(plan.neededPaths);
    AttachFolder(kStageDev, kNewRoot + "/dev");
    DetachedMount("/dev/pts").AttachAt(kNewRoot + "/dev/pts");
    MountTmpfs(kNewRoot + "/dev/shm", "1777");
    MountTmpfs(kNewRoot + "/run", "755");
    fs::create_directory(kNewRoot + "/run/lock");
    fs::permissions(kNewRoot + "/run/lock", fs::perms::all | fs::perms::sticky_bit);
    DetachedMount("/sys").MakeReadOnly().AttachAt(kNewRoot + "/sys");
    AttachProc();
    DetachedMount(std::string(kStageKernel) + "/module").AttachAt(kNewRoot + "/sys/module");
    AttachKernelFile("messages", kNewRoot + "/var/log/messages");
    AttachFolder(plan.keptEtc, kNewRoot + "/usr/vemo/etc");
    AttachFolder(plan.keptDefaults, kNewRoot + "/etc.defaults");
    Furnish(plan);

    fs::current_path(kNewRoot);
    Checked(syscall(SYS_pivot_root, ".", "."), "changing the root");
    Checked(umount2(".", MNT_DETACH), "leaving the machine's root");
    fs::current_path("/");
}

}  // namespace simulation
