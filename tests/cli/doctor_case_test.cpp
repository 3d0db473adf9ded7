// Each way in which caches go wrong on the appliance, what doctor finds then, exactly, and that the commands
// it gives mend it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <ctime>
#include <fstream>
#include <functional>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::ElementsAreArray;
using ::testing::HasSubstr;

constexpr const char* kConfig = "/usr/vemo/etc/flashcache.conf";

// A shell that finds the tool by its name.
void Shell(const std::string& command) {
    const std::string tool = VEMOCACHECTL_PATH;
    const Ran ran =
        RunProgram({"/bin/sh", "-c", "PATH=\"" + tool.substr(0, tool.rfind('/')) + ":$PATH\"\n" + command});
    ASSERT_EQ(ran.code, 0) << command << "\n" << ran.out << ran.err;
}

Words Codes(const Json& findings) {
    Words codes;
    for (const auto& finding : findings) {
        codes.emplace_back(finding["code"]);
    }
    return codes;
}

Json Findings() {
    return Tool({"doctor", "--json"}).Json()["findings"];
}

// The configuration is edited by hand, and the copy made anew.
void Edit(const std::string& script) {
    Shell("sed -i '" + script + "' " + kConfig + "; vemocachectl config refresh");
}

void Unload() {
    Shell("vemocachectl unload cachedev_0");
}

void Grow(const std::string& file) {
    std::ofstream(file).flush();
}

void KillFlush() {
    CreateDirtyCache();
    RunningTool flush({"flush", "cachedev_0", "--json"});
    while (Answer({"flush", "--status", "cachedev_0"})["flush"]["handle_state"] != "flush") {
    }
}

void FillWithDirt() {
    Shell("vemocachectl create /dev/md3 /dev/vg1/volume_1 --size 2M --dirty-threshold 20");
    Fault("cleaning", "pause");
    Shell("dd if=/dev/urandom of=/dev/mapper/cachedev_0 bs=64k count=32 oflag=direct 2>&1");
}

struct Case {
    const char* name;
    std::function<void()> spoil;
    Words codes;
    bool isMended = false;  // by the commands of the findings
};

std::ostream& operator<<(std::ostream& out, const Case& one) {
    return out << one.name;
}

class DoctorCase : public ::testing::TestWithParam<Case> {};

TEST_P(DoctorCase, IsFoundAndMended) {
    const Case& one = GetParam();
    one.spoil();
    const auto findings = Findings();
    ASSERT_THAT(Codes(findings), ElementsAreArray(one.codes)) << Tool({"doctor"}).out;
    if (!one.isMended) {
        return;
    }
    for (const auto& finding : findings) {
        for (const auto& command : finding["commands"]) {
            Shell(std::string(command));
        }
    }
    EXPECT_EQ(Findings().size(), 0U) << Tool({"doctor"}).out;
}

constexpr bool kMended = true;

const std::vector<Case>& Cases() {
    static const std::vector<Case> cases = {
        {"DamagedLine",
         [] { CreateCache(), Shell("sed -i 2s/.*/rubbish/ /usr/vemo/etc/flashcache.conf"); },
         {"VFC-D001", "VFC-D101"}},
        {"NoCopy", [] { CreateCache(), Shell("rm /tmp/flashcache.conf"); }, {"VFC-D002"}, kMended},
        {"OldCopy",
         [] { CreateCache(), Shell("sed -i s/back/around/ /tmp/flashcache.conf"); },
         {"VFC-D002"},
         kMended},
        {"ForeignCopy",
         [] { CreateCache(), Shell("chown nobody /tmp/flashcache.conf"); },
         {"VFC-D003"},
         kMended},
        {"TwoEntries",
         [] {
             CreateCache(), Unload();
             Shell(std::string("cd /usr/vemo/etc; sed s/^.md3+volume_1]/[twin]/ flashcache.conf >twin; ") +
                   "cat twin >>flashcache.conf; vemocachectl config refresh");
         },
         {"VFC-D004", "VFC-D004"}},
        {"TakenDownByHand", [] { CreateCache(), Shell("dmsetup remove cachedev_0"); }, {"VFC-D010"}, kMended},
        {"UnloadedDirty", [] { CreateDirtyCache(), Unload(); }, {"VFC-D011"}, kMended},
        {"NoEntry", [] { CreateCache(), Edit("/./d"); }, {"VFC-D012"}, kMended},
        {"Unfinished",
         [] { CreateCache(), Edit("s/CreateCritSection.*/CreateCritSection=1/"); },
         {"VFC-D013"},
         kMended},
        {"RecordedAsDown", [] { CreateCache(), Edit("s/loaded.*/loaded=0/"); }, {"VFC-D014"}, kMended},
        {"OtherMode", [] { CreateCache(), Edit("s/WriteMode.*/WriteMode=around/"); }, {"VFC-D020"}, kMended},
        {"OtherTuning",
         [] { CreateCache(), Shell("vemocachectl knob set cachedev_0 fast_remove 0"); },
         {"VFC-D021"},
         kMended},
        {"OtherSize",
         [] { CreateCache(), Edit("s/CacheSizeByte.*/CacheSizeByte=4096/"); },
         {"VFC-D022"},
         kMended},
        {"NoSsd", [] { CreateCache(), Unload(), Shell("mv /dev/md3 /dev/gone"); }, {"VFC-D030"}},
        {"NoVolume", [] { CreateCache(), Unload(), Shell("mv /dev/vg1/volume_1 /dev/gone"); }, {"VFC-D031"}},
        {"MarkedMissing",
         [] { CreateCache(), Edit("s/CacheMissing.*/CacheMissing=1/"); },
         {"VFC-D032"},
         kMended},
        {"GrownVolume",
         [] { CreateCache(), Shell("vemo-appliance grow /dev/vg1/volume_1 3G"); },
         {"VFC-D034"},
         kMended},
        {"OtherVolume",
         [] { CreateCache(), Unload(), Edit("s,/dev/vg1/volume_1,/dev/vg1/volume_2,"); },
         {"VFC-D040"}},
        {"WipedWhileUp",
         [] { CreateCache(), Shell("dd if=/dev/zero of=/dev/md3 bs=4k count=1 2>&1"); },
         {"VFC-D041"}},
        {"WipedWhileDown",
         [] { CreateCache(), Unload(), Shell("vemocachectl wipe /dev/md3 --discard-metadata"); },
         {"VFC-D041"}},
        {"OtherFormat",
         [] { CreateCache(), Edit("s/CacheVersion.*/CacheVersion=0/"); },
         {"VFC-D042"},
         kMended},
        {"WrittenOverDirty",
         [] { CreateDirtyCache(), Unload(), Shell("mkfs.ext4 -q /dev/vg1/volume_1"); },
         {"VFC-D050"}},
        {"MountedOverDirty",
         [] {
             Shell("mkfs.ext4 -q /dev/vg1/volume_1");
             Shell("vemocachectl create /dev/md3 /dev/vg1/volume_1 --size 64M");
             Fault("cleaning", "pause");
             Shell("dd if=/dev/urandom of=/dev/mapper/cachedev_0 bs=64k count=1 seek=200 oflag=direct 2>&1");
             Shell("dmsetup remove cachedev_0; mount -o ro,noload /dev/vg1/volume_1 /volume1");
         },
         {"VFC-D051", "VFC-D010"}},
        {"WrittenOverClean",
         [] { CreateCache(), Unload(), Shell("mkfs.ext4 -q /dev/vg1/volume_1"); },
         {"VFC-D052"}},
        {"DeadFlush", KillFlush, {"VFC-D060"}, kMended},
        {"LeftInRepairing",
         [] { CreateCache(), Shell("vemocachectl state set cachedev_0 repairing"); },
         {"VFC-D062"},
         kMended},
        {"LeftForced",
         [] {
             CreateCache();
             Shell("vemocachectl attribute set cachedev_0 force-remove --ignore-write-errors");
         },
         {"VFC-D063"},
         kMended},
        {"AllDirty", FillWithDirt, {"VFC-D071"}},
        {"ManyDirty",
         [] { CreateDirtyCache(), Shell("vemocachectl knob set cachedev_0 dirty_thresh_pct 1"); },
         {"VFC-D070"}},
        {"Thrashing",
         [] {
             Shell("vemocachectl create /dev/md3 /dev/vg1/volume_1 --size 1M --mode around");
             Shell("dd if=/dev/mapper/cachedev_0 of=/dev/null bs=64k count=400 iflag=direct 2>&1");
         },
         {"VFC-D072"}},
        {"RefusedWriteBacks", [] { CreateDirtyCache(), Fault("errors", "3"); }, {"VFC-D080"}},
        {"SsdErrors",
         [] {
             CreateCache();
             Fault("file.flashcache_errors",
                   "ssd_read_errors=2 ssd_write_errors=1 write_disk_sync_errors=0\n");
         },
         {"VFC-D081"}},
        {"DeadFileRun",
         [] { std::ofstream("/tmp/flashcache_file_statistics_processing") << "pid=\"1\"\ncmd=\"no\"\n"; },
         {"VFC-D090"},
         kMended},
        {"ForeignLock",
         [] { Shell("touch /run/lock/vemocachectl.lock; chown nobody /run/lock/vemocachectl.lock"); },
         {"VFC-D092"}},
        {"StrayPins",
         [] {
             std::ofstream("/usr/vemo/etc/flashcache_pin_file.conf")
                 << "[/volume9]\n/volume9/f\n[/volume8]\n";
         },
         {"VFC-D093"}},
        {"TestFiles",
         [] { Grow("/flashcache-create-64mb"), Grow("/tmp/cache-debug-remove"); },
         {"VFC-D095", "VFC-D095"}},
        {"NoKnobs", [] { CreateCache(), Fault("file.flashcache_progress", "rubbish"); }, {"VFC-D104"}},
        {"NoErrorCounts", [] { CreateCache(), Fault("file.flashcache_errors", "rubbish"); }, {"VFC-D105"}},
        {"NoCounters", [] { CreateCache(), Fault("file.flashcache_stats", "rubbish"); }, {"VFC-D106"}},
        {"NoAttribute", [] { CreateCache(), Fault("file.flashcache_attribute", "rubbish"); }, {"VFC-D107"}},
        {"ForeignFlushLock",
         [] {
             CreateCache();
             const std::string lock = "/run/lock/vemocachectl-flush-md3+volume_1.lock";
             Shell("touch " + lock + "; chown nobody " + lock);
         },
         {"VFC-D112"}},
    };
    return cases;
}

INSTANTIATE_TEST_SUITE_P(Ways, DoctorCase, ::testing::ValuesIn(Cases()),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace tests
