#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "caches/file_ages.h"
#include "output/answer.h"
#include "support/dry_run.h"
#include "vemoflashcache.h"
#include "verbs/verb.h"

namespace cli {
namespace {

constexpr const char* kMarker = "/tmp/flashcache_file_statistics_processing";

struct NoFilestatOptions {};

struct RunOptions {
    std::string mount;
    std::string id;
    bool plain = false;
};

bool IsRunning(std::string& volume) {
    std::array<char, 1024> id{};
    if (FlashcacheCheckFileStatisticsProgressFile(id.data(), static_cast<int>(id.size())) == 1) {
        volume = id.data();
        return true;
    }
    return FlashcacheFileStatisticsIsProcessing() == 1;
}

void RequireNoRun(const std::string& mount) {
    std::string volume;
    if (IsRunning(volume)) {
        throw Failure{"a run is in progress already", volume.empty() ? "" : "it walks the volume " + volume,
                      "vemocachectl filestat status", std::nullopt, FailureKind::kInUse};
    }
    if (access(kMarker, F_OK) == 0) {
        throw Failure{"the marker of an earlier run is still there", "that run died and left it behind",
                      fmt::format("vemocachectl filestat clear; vemocachectl filestat run {}", mount),
                      std::nullopt, FailureKind::kRefused};
    }
}

Answer AgesAnswer() {
    Answer answer{"ages", Layout::kTable, ReadFileAges(), "",
                  "There are no file statistics: \"vemocachectl filestat run MOUNT\" makes them."};
    if (!answer.records.empty()) {
        answer.remark = "files outside the shares are not counted, except those of packages and iSCSI LUNs";
    }
    return answer;
}

void RunWalk(const Context& context, const RunOptions& options) {
    const std::string mount = std::filesystem::absolute(options.mount).lexically_normal();
    RequireNoRun(mount);
    const std::string id = options.id.empty() ? CountedAs(mount) : options.id;
    if (!context.json && !IsDryRun()) {
        Note(fmt::format("walking the shares of {}; this may take a while", mount));
    }
    const char* call = options.plain ? "FlashcacheFileStatistics" : "FlashcacheDoStatistics";
    const Outcome outcome = Change(
        Attempt, [&] { return Step{call, {id, mount}, {}}; },
        [&] {
            return options.plain ? FlashcacheFileStatistics(id.c_str(), mount.c_str())
                                 : FlashcacheDoStatistics(id.c_str(), mount.c_str());
        });
    if (outcome.result != 0) {
        throw LibraryFailure(fmt::format("the files of {} could not be counted", mount), outcome,
                             "see that it is the mount path of a volume");
    }
    Print(AgesAnswer(), context.json);
}

void ShowAges(const Context& context, const NoFilestatOptions& /*options*/) {
    Print(AgesAnswer(), context.json);
}

void ShowWalk(const Context& context, const NoFilestatOptions& /*options*/) {
    std::string volume;
    const bool running = IsRunning(volume);
    const Record record{{{"running", "Running", running},
                         {"id", "Volume", KnownText(volume)},
                         {"stale_marker", "Marker of a dead run", !running && access(kMarker, F_OK) == 0},
                         {"has_statistics", "Statistics exist", FlashcacheFileStatisticsDataIsExist() == 1}}};
    Print(One("filestat", record), context.json);
}

void ClearMarker(const Context& context, const NoFilestatOptions& /*options*/) {
    std::string volume;
    if (IsRunning(volume)) {
        throw Failure{"a run is in progress", volume.empty() ? "" : "it walks the volume " + volume,
                      "vemocachectl filestat status", std::nullopt, FailureKind::kInUse};
    }
    if (IsDryRun()) {
        if (access(kMarker, F_OK) == 0) {
            NoteStep({"remove", {kMarker}, {}});
        }
        return;
    }
    const bool isCleared = unlink(kMarker) == 0;
    if (!isCleared && errno != ENOENT) {
        throw Failure{"the marker of the dead run could not be taken away", std::strerror(errno),
                      fmt::format("ls -l {}", kMarker)};
    }
    Print(One("filestat", Record{{{"cleared", "Cleared", isCleared}}},
              isCleared ? "The marker of a dead run is gone." : "There was no marker of a dead run."),
          context.json);
}

std::vector<Argument> DeclareRun(RunOptions& options) {
    return {{.name = "MOUNT",
             .help = "mount path of the volume",
             .target = &options.mount,
             .required = true,
             .isFolder = true,
             .completion = Completion::kFolder},
            {.name = "--id",
             .help = "under which name it is stored; default: the mount path's last part",
             .target = &options.id,
             .valueName = "NAME"},
            {.name = "--plain",
             .help = "store days alone, in the plain format, in place of all that is stored",
             .target = &options.plain}};
}

}  // namespace

Verb FilestatVerb() {
    return MakeGroup(
        "filestat", "Count the files in the shares of a volume by age; others are not counted",
        {MakeVerb<RunOptions>(
             "run",
             "Walk the shares of a volume and store what was counted; files outside them are not counted",
             "vemocachectl filestat run /volume1", DeclareRun, RunWalk),
         Report(MakeVerb<NoFilestatOptions>(
             "show", "Draw what was counted in the shares, by day and by level of age",
             "vemocachectl filestat show", [](NoFilestatOptions&) { return NoArguments(); }, ShowAges)),
         Report(MakeVerb<NoFilestatOptions>(
             "status", "Tell whether a run is in progress", "vemocachectl filestat status",
             [](NoFilestatOptions&) { return NoArguments(); }, ShowWalk)),
         MakeVerb<NoFilestatOptions>(
             "clear", "Take away the marker of a run that died, which keeps others from running",
             "vemocachectl filestat clear", [](NoFilestatOptions&) { return NoArguments(); }, ClearMarker)});
}

}  // namespace cli
