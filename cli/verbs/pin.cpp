#include <fmt/format.h>

#include <filesystem>

#include "caches/inventory.h"
#include "caches/pinning.h"
#include "caches/programs.h"
#include "output/answer.h"
#include "support/dry_run.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct PinOptions {
    std::string mount;
    std::vector<std::string> files;
    std::string file;
    bool send = false;
    bool remove = false;
};

void RequireModel() {
    if (ModelSupportPin() == 0) {
        throw Failure{"this appliance does not pin files", "its model has no support for it", "",
                      std::nullopt, FailureKind::kRefused};
    }
}

// One file a call: so that the list's limited length limits no admin, and a file that fails costs its own
// row alone.
void ChangePins(Context& context, const PinOptions& options, bool pin) {
    RequireModel();
    Answer answer{"files", Layout::kTable, {}, "", ""};
    for (const auto& file : options.files) {
        const Pinning pinning = ChangePin(file, options.mount, pin);
        const bool isFailed = pinning.result == Pinning::Result::kFailed;
        context.failed |= isFailed;
        if (isFailed && IsDryRun()) {
            NoteProblem(pinning.path + ": " + pinning.problem);
        }
        answer.records.push_back(pinning.Fields());
    }
    Print(answer, context.json);
}

void CheckPin(Context& context, const PinOptions& options) {
    std::uint32_t pinned = 0;
    const std::string path = PinPath(options.file);
    const Outcome outcome = Attempt([&] { return VEMOFlashCachePinIsFileAdded(path.c_str(), &pinned); });
    if (outcome.result != 0) {
        throw LibraryFailure(fmt::format("whether {} is pinned cannot be told", path), outcome,
                             "see that the file exists");
    }
    context.saidNo = pinned == 0;
    Print(One("file", Record{{{"file", "File", path}, {"pinned", "Pinned", pinned != 0}}}), context.json);
}

// Nothing where it cannot be told: to the library a failure of the pin tool is a "no", with a line in the
// log.
Value CanPin(const std::string& mount) {
    if (ModelSupportPin() == 0) {
        return false;
    }
    if (mount.empty()) {
        return {};
    }
    return KnownFlag(YesOrNo(Attempt([&] { return VEMOFlashCachePinIsVolumeSupport(mount.c_str()); })));
}

void ListSupport(const Context& context, const PinOptions& /*options*/) {
    const Inventory inventory = TakeInventory();
    Answer answer{"volumes", Layout::kTable, {}, "", "No cache is configured."};
    for (const auto& cache : inventory.caches) {
        const std::string mount = cache.entry != nullptr ? cache.entry->ReferencePath : "";
        answer.records.push_back({{{"name", "Cache", cache.Name()},
                                   {"mount_path", "Mount path", KnownText(mount)},
                                   {"supported", "Can pin", CanPin(mount)}}});
    }
    Print(answer, context.json);
}

// A call of the library about a whole volume, and the option of the pin tool that it runs.
struct Demanded {
    const char* call;
    int (*operation)(const char* mount);
    const char* option;
};

constexpr Demanded kSend = {"VEMOFlashCachePinSendVolumeBitmap", VEMOFlashCachePinSendVolumeBitmap,
                            "--send-bitmap"};
constexpr Demanded kDelete = {"VEMOFlashCachePinDeleteVolumeBitmap", VEMOFlashCachePinDeleteVolumeBitmap,
                              "--delete-bitmap"};
constexpr Demanded kMount = {"VEMOFlashCachePinHandleVolumeMount", VEMOFlashCachePinHandleVolumeMount,
                             "--handle-mount"};
constexpr Demanded kUmount = {"VEMOFlashCachePinHandleVolumeUmount", VEMOFlashCachePinHandleVolumeUmount,
                              "--handle-umount"};

void Demand(const std::string& what, const std::string& mount, const Demanded& demanded) {
    const Outcome outcome = Change(
        Attempt, [&] { return Step{demanded.call, {mount}, TellingPinTool(demanded.option, mount)}; },
        [&] { return demanded.operation(mount.c_str()); });
    if (outcome.result != 0) {
        throw LibraryFailure(fmt::format("{} {} failed", what, mount), outcome,
                             "see that this is the mount path of a volume that can pin files");
    }
}

Value BitmapSize(const std::string& mount) {
    std::uint64_t bytes = 0;
    const Outcome outcome =
        Attempt([&] { return VEMOFlashCachePinGetBitmapSizeByte(mount.c_str(), &bytes); });
    if (outcome.result != 0) {
        throw LibraryFailure(fmt::format("the pin bitmap of {} could not be measured", mount), outcome,
                             "vemocachectl pin list-support");
    }
    return bytes;
}

void Bitmap(const Context& context, const PinOptions& options) {
    RequireModel();
    // The pins of a volume that is gone must go, too.
    const bool isThere = std::filesystem::is_directory(options.mount);
    if (!isThere && !options.remove) {
        throw Failure{"wrong usage", fmt::format("there is no folder {}", options.mount), "", std::nullopt,
                      FailureKind::kUsage};
    }
    if (options.send) {
        Demand("sending the pin bitmap of", options.mount, kSend);
    }
    if (options.remove) {
        Demand("deleting the pin bitmap of", options.mount, kDelete);
    }
    const Record record{
        {{"mount_path", "Mount path", options.mount},
         {"bitmap_bytes", "Bitmap", isThere ? BitmapSize(options.mount) : Value(), Format::kBytes},
         {"sent", "Sent", options.send},
         {"deleted", "Deleted", options.remove}}};
    Print(One("bitmap", record), context.json);
}

void TellTool(const Context& context, const PinOptions& options, bool mounted) {
    RequireModel();
    Demand(mounted ? "handling the mount of" : "handling the unmount of", options.mount,
           mounted ? kMount : kUmount);
    Print(
        One("volume", Record{{{"mount_path", "Mount path", options.mount}, {"mounted", "Mounted", mounted}}}),
        context.json);
}

std::vector<Argument> MountAlone(PinOptions& options) {
    return {{.name = "MOUNT",
             .help = "mount path of the volume",
             .target = &options.mount,
             .required = true,
             .isFolder = true,
             .completion = Completion::kFolder}};
}

std::vector<Argument> MountAndFiles(PinOptions& options) {
    std::vector<Argument> arguments = MountAlone(options);
    arguments.push_back({.name = "FILE",
                         .help = "files of the volume",
                         .target = &options.files,
                         .required = true,
                         .completion = Completion::kFile});
    return arguments;
}

std::vector<Argument> OneFile(PinOptions& options) {
    return {{.name = "FILE",
             .help = "the file",
             .target = &options.file,
             .required = true,
             .completion = Completion::kFile}};
}

std::vector<Argument> MountAndActions(PinOptions& options) {
    std::vector<Argument> arguments = MountAlone(options);
    arguments.front().isFolder = false;
    arguments.push_back({.name = "--send", .help = "send it to the kernel", .target = &options.send});
    arguments.push_back({.name = "--delete",
                         .help = "delete it; its files are pinned no more",
                         .target = &options.remove,
                         .excludes = {"--send"}});
    return arguments;
}

std::vector<Verb> FileVerbs() {
    return {MakeVerb<PinOptions>("add", "Keep files resident in the cache",
                                 "vemocachectl pin add /volume1 /volume1/db/index", MountAndFiles,
                                 [](Context& c, const PinOptions& o) { ChangePins(c, o, true); }),
            MakeVerb<PinOptions>("remove", "Let files leave the cache again",
                                 "vemocachectl pin remove /volume1 /volume1/db/index", MountAndFiles,
                                 [](Context& c, const PinOptions& o) { ChangePins(c, o, false); }),
            Question(MakeVerb<PinOptions>("check", "Tell whether a file is pinned",
                                          "vemocachectl pin check /volume1/db/index", OneFile, CheckPin),
                     "the file is not pinned")};
}

std::vector<Verb> VolumeVerbs() {
    return {Report(MakeVerb<PinOptions>(
                "list-support", "Show which caches' volumes can pin files", "vemocachectl pin list-support",
                [](PinOptions&) { return NoArguments(); }, ListSupport)),
            MakeVerb<PinOptions>("bitmap",
                                 "Show the size of a volume's pin bitmap, send it to the kernel or delete it",
                                 "vemocachectl pin bitmap /volume1 --send", MountAndActions, Bitmap),
            MakeVerb<PinOptions>("mount", "Tell the pin tool that a volume was mounted",
                                 "vemocachectl pin mount /volume1", MountAlone,
                                 [](const Context& c, const PinOptions& o) { TellTool(c, o, true); }),
            MakeVerb<PinOptions>("umount", "Tell the pin tool that a volume was unmounted",
                                 "vemocachectl pin umount /volume1", MountAlone,
                                 [](const Context& c, const PinOptions& o) { TellTool(c, o, false); })};
}

}  // namespace

Verb PinVerb() {
    std::vector<Verb> verbs = FileVerbs();
    for (auto& verb : VolumeVerbs()) {
        verbs.push_back(std::move(verb));
    }
    return MakeGroup("pin", "Keep chosen files resident in the cache", std::move(verbs));
}

}  // namespace cli
