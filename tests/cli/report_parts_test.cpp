// The parts that a report is made of, each by itself.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "cli/tool.h"
#include "report/chart.h"
#include "report/item.h"
#include "report/new_file.h"
#include "report/stand_ins.h"
#include "report/tar.h"
#include "support/failure.h"
#include "support/private_folder.h"

namespace cli {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
namespace fs = std::filesystem;

StandIns SomeStandIns() {
    using enum StandIns::Kind;
    StandIns standIns;
    standIns.AddDevice(kSsd, "/dev/md3");
    standIns.AddDevice(kSsd, "/dev/md30");
    standIns.AddDevice(kVolume, "/dev/vg1/volume_1");
    standIns.AddDevice(kVolume, "/dev/vg1/volume_10");
    standIns.AddDevice(kVolume, "/dev/vg2/a-volume+with-a-name");
    standIns.AddDevice(kVolume, "/dev/vg2/data");
    standIns.AddMount("/volume1");
    standIns.Add(kHost, "tower");
    standIns.Add(kSerial, "4711");
    return standIns;
}

TEST(StandIns, KeepTheRelationsOfNames) {
    StandIns standIns = SomeStandIns();
    const std::pair<const char*, const char*> cases[] = {
        {"/dev/md3 /dev/md30 md3p1", "/dev/ssd-1 /dev/ssd-2 md3p1"},
        {"[md3+volume_1]", "[ssd-1+volume-1]"},
        {"[md30+volume_10]", "[ssd-2+volume-2]"},
        {"dev.flashcache_md3+volume_10.do_sync", "dev.flashcache_ssd-1+volume-2.do_sync"},
        {"/proc/sys/dev/flashcache_md30+volume_1/", "/proc/sys/dev/flashcache_ssd-2+volume-1/"},
        {"ssd dev (/dev/md3), disk dev (/dev/vg1/volume_1) cache mode(WRITE_BACK)",
         "ssd dev (/dev/ssd-1), disk dev (/dev/group-1/volume-1) cache mode(WRITE_BACK)"},
        {"md3+a-volume+with-a-name on vg2", "ssd-1+volume-3 on group-2"},
        {"my_volume_1 volume_100 xmd3 md3_", "my_volume_1 volume_100 xmd3 md3_"},
        // A name that is a word of the formats is one in paths and pairs.
        {"data block size(64K) /dev/vg2/data md3+data",
         "data block size(64K) /dev/group-2/volume-4 ssd-1+volume-4"},
        {"tower kernel: tower.lan", "host-1 kernel: host-1.lan"},
        // Digits alone are a number elsewhere.
        {"availableSerials = \"4711,815\" reads=4711 blocks(4711)",
         "availableSerials = \"serial-1,815\" reads=4711 blocks(4711)"},
        {"0a1b2c3d-0000-1111-2222-0123456789ab 0a1b2c3d-0000-1111-2222-0123456789ab",
         "00000000-0000-0000-0000-000000000001 00000000-0000-0000-0000-000000000001"},
        {"0a1b2c3d-0000-1111-2222-0123456789abc", "0a1b2c3d-0000-1111-2222-0123456789abc"},
        {"File (/volume1/pay roll) /volume1 /volume10/x", "File (/mount-1/file-1 roll) /mount-1 /volume10/x"},
        {"[/volume1]\n/volume1/pay roll\n/volume1/pay", "[/mount-1]\n/mount-1/file-2\n/mount-1/file-1"}};
    for (const auto& [text, replaced] : cases) {
        EXPECT_EQ(standIns.Replace(text), replaced);
    }
}

TEST(Archive, IsReadByTar) {
    const PrivateFolder folder;
    const std::string deep = std::string(90, 'f') + "/" + std::string(60, 'g') + "/file";
    TarWriter archive(1700000000);
    archive.Add("empty", "");
    archive.Add("a/block", std::string(512, 'x'));
    archive.Add(deep, "deep\n");
    EXPECT_THROW(archive.Add(std::string(101, 'n'), ""), std::invalid_argument);
    EXPECT_THROW(archive.Add(std::string(200, 'n') + "/n", ""), std::invalid_argument);
    std::ofstream(folder / "x.tar.gz") << Gzipped(archive.Take());
    ASSERT_EQ(tests::RunProgram({"tar", "xzf", folder / "x.tar.gz", "-C", folder / ""}).code, 0);
    EXPECT_EQ(fs::file_size(folder / "empty"), 0U);
    EXPECT_EQ(tests::RunProgram({"cat", folder / "a/block"}).out, std::string(512, 'x'));
    EXPECT_EQ(tests::RunProgram({"cat", folder / deep}).out, "deep\n");
    struct stat status{};
    ASSERT_EQ(stat((folder / "a/block").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    EXPECT_EQ(status.st_mtime, 1700000000);
}

TEST(NewFile, AppearsWholeOrNotAtAll) {
    const PrivateFolder folder;
    const auto count = [&] { return std::distance(fs::directory_iterator(folder / ""), {}); };
    const std::string path = folder / "file";
    {
        NewFile unwritten(path, false);
    }
    EXPECT_EQ(count(), 0);
    NewFile(path, false).Write("first");
    EXPECT_EQ(tests::RunProgram({"cat", path}).out, "first");
    EXPECT_THROW(NewFile(path, false), Failure);
    NewFile(path, true).Write("second");
    EXPECT_EQ(tests::RunProgram({"cat", path}).out, "second");
    EXPECT_EQ(count(), 1);
    NewFile late(folder / "late", false);
    std::ofstream(folder / "late") << "another's";
    EXPECT_THROW(late.Write("ours"), Failure);
    EXPECT_EQ(tests::RunProgram({"cat", folder / "late"}).out, "another's");
    EXPECT_THROW(NewFile(folder / "none/file", false), Failure);
    EXPECT_THROW(NewFile(folder / "", true), Failure);
    EXPECT_EQ(count(), 2);
}

TEST(ReportItem, TellsWhatBecameOfTheReading) {
    const PrivateFolder folder;
    std::ofstream(folder / "file") << "first\nsecond\n";
    EXPECT_EQ(ReadItem(folder / "file").text, "first\nsecond\n");
    EXPECT_EQ(ReadItem(folder / "file", 9).text, "second\n");
    EXPECT_TRUE(ReadItem(folder / "file", 9).isCut);
    EXPECT_FALSE(ReadItem(folder / "none").isThere);
    EXPECT_EQ(ReadItem(folder / "").error, "it is no regular file");
    EXPECT_EQ(RunItem({"echo", "a"}, 60).text, "a\n");
    EXPECT_EQ(RunItem({"echo", "a"}, 60).code, 0);
    const ReportItem failed = RunItem({"ls", folder / "none"}, 60);
    EXPECT_EQ(failed.name, "ls " + (folder / "none"));
    EXPECT_EQ(failed.code, 2);
    EXPECT_THAT(failed.text, HasSubstr("No such file"));
    EXPECT_FALSE(RunItem({folder / "none"}, 60).isThere);
    EXPECT_EQ(RunItem({"sleep", "1000"}, 0.1).error, "it did not end within 0.1 seconds");
}

TEST(Chart, DrawsWhatIsKnown) {
    const Chart chart{
        "A & B", "B/s", {{"one", {{0, 0.0}, {1, 2048.0}, {2, {}}, {3, 1024.0}}}, {"none", {{0, {}}}}}};
    const std::string svg = SvgOf(chart);
    EXPECT_THAT(svg, HasSubstr("<path class=\"line-0\" d=\" M78.0 176.0 L234.0 14.0 M546.0 95.0\"/>"));
    EXPECT_THAT(svg, HasSubstr("2.0 KiB/s</text>"));
    EXPECT_THAT(svg, HasSubstr("A &amp; B"));
    EXPECT_THAT(svg, HasSubstr("none (no numbers)"));
    EXPECT_THAT(svg, Not(HasSubstr("no numbers in this time")));
    EXPECT_THAT(SvgOf({"", "%", {{"", {}}}, 100}), HasSubstr("no numbers in this time"));
    EXPECT_EQ(Escaped("<a href=\"x\">&\x1b"), "&lt;a href=&quot;x&quot;&gt;&amp;?");
}

}  // namespace
}  // namespace cli
