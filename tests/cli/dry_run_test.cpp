// What --dry-run tells is what is done without it: the programs are recorded by wrappers in their places.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>

#include "cli/tool.h"
#include "support/private_folder.h"
#include "verbs/verbs.h"

namespace tests {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Programs = std::vector<Words>;

constexpr const char* kRan = "/run/programs-that-ran";
constexpr const char* kRealFolder = "/real-programs";
constexpr const char* kConfig = "/usr/vemo/etc/flashcache.conf";

// Puts a wrapper in the place of a program that notes its words, a line each, and an empty line behind them.
void Record(const std::string& program) {
    std::filesystem::create_directories(kRealFolder);
    const std::string real = kRealFolder / std::filesystem::path(program).filename();
    std::filesystem::rename(program, real);
    std::ofstream(program) << "#!/bin/bash\nprintf '%s\\n' \"$0\" \"$@\" '' >>" << kRan << "\nexec " << real
                           << " \"$@\"\n";
    std::filesystem::permissions(program, std::filesystem::perms(0755));
}

// Of the programs that also look, those runs that change something.
bool ChangesSomething(const Words& words) {
    const auto has = [&](std::string_view part) {
        return std::any_of(words.begin(), words.end(),
                           [&](const std::string& word) { return word.find(part) != std::string::npos; });
    };
    const std::string name = std::filesystem::path(words[0]).filename();
    return name == "sysctl"            ? has("=")
           : name == "dmsetup"         ? has("remove")
           : name == "flashcache_load" ? !has("-c")
           : name == "vemocachepinfiletool"
               ? !has("--check-pin") && !has("--support-pin") && !has("--get-bitmap")
               : true;
}

// The same program again and again, as a flush starts its write-back, counts once; one that is found by its
// name alone goes by that.
void Add(Programs& programs, Words words) {
    if (std::filesystem::path(words[0]).filename() == "mv" && words[1] != "-f") {
        words[0] = "mv";
    }
    if (ChangesSomething(words) && (programs.empty() || programs.back() != words)) {
        programs.push_back(std::move(words));
    }
}

// What ran since the last call.
Programs Ran() {
    Programs programs;
    Words words;
    std::ifstream file(kRan);
    for (std::string line; std::getline(file, line);) {
        if (line.empty()) {
            Add(programs, std::move(words));
            words = {};
        } else {
            words.push_back(line);
        }
    }
    std::filesystem::remove(kRan);
    return programs;
}

Programs ProgramsIn(const Json& plan) {
    Programs programs;
    for (const auto& step : plan) {
        for (const auto& program : step["programs"]) {
            Words words;
            for (const auto& word : program) {
                words.emplace_back(word);
            }
            Add(programs, std::move(words));
        }
    }
    return programs;
}

// A command, what is done before it, and its exit code.
struct Told {
    Words words;
    void (*prepare)() = nullptr;
    int code = 0;
};
using Story = std::vector<Told>;

// That the command does just what its dry run told, which did nothing.
void ExpectPlanHolds(const Told& told) {
    const std::string what = ::testing::PrintToString(told.words);
    const std::string before = ReadText(kConfig);
    Words dry = told.words;
    dry.emplace_back("--dry-run");
    const Programs planned = ProgramsIn(Answer(dry)["plan"]);
    EXPECT_THAT(Ran(), IsEmpty()) << what;
    EXPECT_EQ(ReadText(kConfig), before) << what;
    const tests::Ran ran = Tool(told.words);
    EXPECT_EQ(ran.code, told.code) << what << ran.err;
    EXPECT_EQ(Ran(), planned) << what;
}

class DryRun : public ::testing::Test {
  protected:
    void SetUp() override {
        for (const char* program :
             {"/sbin/sysctl", "/sbin/dmsetup", "/sbin/insmod", "/sbin/rmmod", "/usr/bin/flashcache_create",
              "/usr/bin/flashcache_load", "/usr/bin/flashcache_destroy", "/usr/bin/flashcache_expand",
              "/bin/cp", "/bin/mv", "/usr/bin/wget", "/usr/vemo/sbin/vemocachepinfiletool"}) {
            Record(program);
        }
    }

    static void Tell(const Story& story) {
        for (const auto& told : story) {
            if (told.prepare != nullptr) {
                told.prepare();
                Ran();
            }
            ExpectPlanHolds(told);
        }
    }
};

Words Create(const char* mode, const char* format) {
    return {"create",   "/dev/md3", "/dev/vg1/volume_1", "--size",         "16M", "--mode", mode,
            "--format", format,     "--discard-content", "--fallow-delay", "77"};
}

void WriteDirtyBlocks() {
    Fault("cleaning", "pause");
    ASSERT_EQ(RunProgram(
                  {"dd", "if=/dev/urandom", "of=/dev/mapper/cachedev_0", "bs=64k", "count=4", "oflag=direct"})
                  .code,
              0);
    Fault("cleaning", "run");
}

void ForgetEntry() {
    ASSERT_EQ(RunProgram({"sed", "-i", "/^\\[/,$d", kConfig}).code, 0);
}

void GrowVolume() {
    ASSERT_EQ(RunProgram({VEMO_APPLIANCE_PATH, "grow", "/dev/vg1/volume_1", "3G"}).code, 0);
}

const Story kOfACache = {
    {Create("back", "new")},
    {{"knob", "set", "cachedev_0", "dirty_thresh_pct", "40"}},
    {{"state", "set", "cachedev_0", "flush"}},
    {{"state", "set", "cachedev_0", "repairing"}},
    {{"state", "set", "cachedev_0", "stop-writeback"}},
    {{"state", "set", "cachedev_0", "normal"}},
    {{"attribute", "set", "cachedev_0", "force-remove", "--ignore-write-errors"}},
    {{"doctor", "--mute", "VFC-D063", "--for", "1h"}},
    {{"doctor", "--unmute", "VFC-D063"}},
    {{"attribute", "set", "cachedev_0", "none"}},
    {{"expand", "cachedev_0"}},
    {{"expand", "cachedev_0"}, GrowVolume},
    {{"flush", "cachedev_0"}, WriteDirtyBlocks},
    {{"flush", "cachedev_0", "--keep"}},
    {{"state", "set", "cachedev_0", "normal"}},
    {{"unload", "cachedev_0"}},
    {{"load", "md3+volume_1"}},
    {{"load", "--all"}},
    {{"unload", "cachedev_0"}},
    {{"config", "remove", "md3+volume_1", "--forget-cache"}},
    {{"load", "/dev/md3", "/dev/vg1/volume_1"}},
    {{"config", "correct", "md3+volume_1"}},
    {{"config", "refresh"}},
    {{"config", "adopt", "cachedev_0"}, ForgetEntry},
    {{"delete", "cachedev_0"}, WriteDirtyBlocks},
    {{"modules", "--load"}},
};

const Story kOfModesAndFormats = {
    {Create("around", "original")},
    {{"delete", "cachedev_0"}},
    {Create("thru", "new")},
    {{"delete", "cachedev_0"}},
    {Create("back_bypass", "original")},
    {{"delete", "cachedev_0", "--discard-dirty"}, WriteDirtyBlocks},
    {Create("back", "original")},
    {{"unload", "cachedev_0"}, WriteDirtyBlocks},
    {{"wipe", "/dev/md3", "--discard-metadata"}},
};

void MountVolume() {
    CreateCache();
    ASSERT_EQ(RunProgram({"mkfs.ext4", "-q", "/dev/mapper/cachedev_0"}).code, 0);
    ASSERT_EQ(RunProgram({"mount", "/dev/mapper/cachedev_0", "/volume1"}).code, 0);
    std::filesystem::create_directory("/volume1/share");
    std::ofstream("/volume1/share/file") << "text";
}

// By a server on this machine.
void ServeDatabase() {
    std::ofstream("/tmp/served") << "[QM-S400|480]\nbrand=\"Q\"\n";
    const std::string address = RunProgram({"/usr/bin/vemo-update-server", "good", "/tmp/served"}).out;
    std::ofstream("/etc.defaults/vemoinfo.conf", std::ios::app) << "support_ssd_update_site=" << address;
}

const Story kBesideCaches = {
    {{"pin", "add", "/volume1", "/volume1/share/file"}, MountVolume},
    {{"pin", "bitmap", "/volume1", "--send"}},
    {{"pin", "mount", "/volume1"}},
    {{"pin", "umount", "/volume1"}},
    {{"pin", "remove", "/volume1", "/volume1/share/file"}},
    {{"filestat", "run", "/volume1"}},
    {{"filestat", "clear"}},
    {{"serials", "set", "list", "S1"}},
    {{"serials", "remove", "list", "--discard-list"}},
    {{"apm", "set", "key"}},
    {{"apm", "clear", "key"}},
    {{"notify", "md3+volume_1"}},
    {{"ssd", "update"}, ServeDatabase},
};

TEST_F(DryRun, TellsWhatIsDoneInTheLifeOfACache) {
    Tell(kOfACache);
}

TEST_F(DryRun, TellsWhatIsDoneInEachModeAndFormat) {
    Tell(kOfModesAndFormats);
}

TEST_F(DryRun, TellsWhatIsDoneBesideTheCaches) {
    Tell(kBesideCaches);
}

// All verbs that change something, such as "knob set".
void CollectChanging(const std::vector<cli::Verb>& verbs, const std::string& group,
                     std::set<std::string>& names) {
    for (const auto& verb : verbs) {
        if (verb.action && verb.canDryRun) {
            names.insert(group + verb.name);
        }
        CollectChanging(verb.verbs, group + verb.name + " ", names);
    }
}

TEST(DryRunTable, TriesEachVerbThatChangesSomething) {
    std::set<std::string> tried;
    for (const auto& story : {kOfACache, kOfModesAndFormats, kBesideCaches}) {
        for (const auto& told : story) {
            tried.insert(told.words[0]);
            tried.insert(told.words[0] + " " + told.words[1]);
        }
    }
    std::set<std::string> changing;
    CollectChanging(cli::AllVerbs(), "", changing);
    for (const auto& verb : changing) {
        EXPECT_THAT(tried, Contains(verb));
    }
}

TEST(DryRunAnswer, TellsWhatWouldBeLostAndAsksNobody) {
    CreateDirtyCache();
    const Json deletion = Answer({"delete", "cachedev_0", "--fast", "--dry-run"})["total"];
    EXPECT_THAT(std::string(deletion["losses"][0]), HasSubstr("drop 20 dirty blocks (1.2 MiB)"));
    EXPECT_EQ(Answer({"delete", "cachedev_0", "--dry-run"})["total"]["dirty_blocks"], kDirty);
    const Json creation = Answer({"create", "/dev/md4", "/dev/vg1/volume_2", "--size", "100K", "--dry-run"});
    EXPECT_EQ(creation["total"]["size_bytes"], 65536);
    EXPECT_EQ(creation["total"]["memory_bytes"], 26);
    // What is refused without it is refused with it.
    EXPECT_EQ(Tool({"create", "/dev/md3", "/dev/vg1/volume_2", "--dry-run"}).code, 1);
    EXPECT_EQ(Tool({"list", "--dry-run"}).code, kUsage);
    EXPECT_EQ(DirtyBlocks(), kDirty);
}

TEST(DryRunAnswer, KnowsTheTimeOfAFlushFromTheLastOne) {
    CreateDirtyCache();
    EXPECT_TRUE(Answer({"flush", "cachedev_0", "--dry-run"})["total"]["expected_seconds"].IsNull());
    std::filesystem::create_directories("/usr/vemo/etc/vemocachectl");
    std::ofstream("/usr/vemo/etc/vemocachectl/md3+volume_1.pace") << "4\n";
    EXPECT_EQ(Answer({"flush", "cachedev_0", "--dry-run"})["total"]["expected_seconds"], 5);
    EXPECT_THAT(Tool({"flush", "cachedev_0", "--deadline", "1s"}).err,
                HasSubstr("20 dirty blocks (1.2 MiB)"));
    std::ofstream("/usr/vemo/etc/vemocachectl/md3+volume_1.pace") << "-nonsense\n";
    EXPECT_TRUE(Answer({"flush", "cachedev_0", "--dry-run"})["total"]["expected_seconds"].IsNull());
}

}  // namespace
}  // namespace tests
