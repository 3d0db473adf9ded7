// Runs: what they write, how they fail, what they leave, and who sees them.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <tuple>

#include "library/file_statistics_support.h"

namespace {

using spy::Answer;
using spy::ToolRun;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr const char* kAlreadyExists =
    "/tmp/flashcache_file_statistics_processing already exists, file statistics is processing.";
constexpr const char* kMarkerFailed = "Fail to write statistics process file.";

class FileRunTest : public FileStatisticsTest {};

// Two days with files, and what both formats are to say of them.
void MakeFiles(time_t now) {
    for (const auto& [name, bytes, age] :
         {std::tuple("a", 4096U, 0), {"b", 8192U, 0}, {"c", 12288U, 6 * 86400}}) {
        const std::string path = std::string("/volume1/share/") + name;
        const timespec times[] = {{now - age, 0}, {now - age, 0}};
        MakeFile(path, bytes);
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    }
}

TEST_F(FileRunTest, PlainRunReplacesTheWholeFile) {
    MakeFiles(fixedNow);
    WriteWhole(kStatistics, std::string(5000, 'x'));
    EXPECT_EQ(FlashcacheFileStatisticsDataIsExist(), 1);
    EXPECT_EQ(FlashcacheFileStatistics("volume_1", kVolume), 0);
    EXPECT_EQ(ReadWhole(kStatistics),
              "Volume=volume_1\n"
              "Time=2096-06-15 14:30\n"
              "Day=2096-06-15 FileCount=2 FileSizeSum=12288 Byte\n"
              "Day=2096-06-14 FileCount=0 FileSizeSum=0 Byte\n"
              "Day=2096-06-13 FileCount=0 FileSizeSum=0 Byte\n"
              "Day=2096-06-12 FileCount=0 FileSizeSum=0 Byte\n"
              "Day=2096-06-11 FileCount=0 FileSizeSum=0 Byte\n"
              "Day=2096-06-10 FileCount=0 FileSizeSum=0 Byte\n"
              "Day=2096-06-09 FileCount=1 FileSizeSum=12288 Byte\n");
    EXPECT_FALSE(std::filesystem::exists(kMarker));
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
    EXPECT_EQ(FlashcacheFileStatistics(nullptr, kVolume), 0);
    EXPECT_THAT(ReadWhole(kStatistics), testing::StartsWith("Volume=\nTime=2096"));
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre("Fail to get volume Name"));
}

TEST_F(FileRunTest, SectionedRunReplacesItsOwnSection) {
    MakeFiles(fixedNow);
    WriteWhole(kStatistics, "[volume_2]\nTime=then\n[volume_1]\nOld=1\n[volume_3]\nTime=then\n");
    EXPECT_EQ(FlashcacheDoStatistics("volume_1", kVolume), 0);
    EXPECT_EQ(ReadWhole(kStatistics),
              "[volume_2]\nTime=then\n[volume_3]\nTime=then\n[volume_1]\n"
              "Time=2096-06-15 14:30\n"
              "2096-06-15=2,12288\n2096-06-14=0,0\n2096-06-13=0,0\n2096-06-12=0,0\n"
              "2096-06-11=0,0\n2096-06-10=0,0\n2096-06-09=1,12288\n"
              "Level_0=12288\nLevel_1=12288\nLevel_2=0\nLevel_3=0\n");
    EXPECT_FALSE(std::filesystem::exists(kMarker));
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
}

// On a day of 25 hours, 24 hours ago may have been today.
TEST_F(FileRunTest, DatesAreThoseOfTwentyFourHoursAgo) {
    SetZone("CET-1CEST,M3.5.0,M10.5.0/3");
    fixedNow = At("2096-10-28 23:30:00");
    EXPECT_EQ(FlashcacheFileStatistics("v", kVolume), 0);
    EXPECT_THAT(ReadWhole(kStatistics), HasSubstr("\nDay=2096-10-28 FileCount=0 FileSizeSum=0 Byte\n"
                                                  "Day=2096-10-28 FileCount=0 FileSizeSum=0 Byte\n"
                                                  "Day=2096-10-27 "));
}

// ---- Failures ----

int RunPlain() {
    return FlashcacheFileStatistics("volume_1", kVolume);
}
int RunSectioned() {
    return FlashcacheDoStatistics("volume_1", kVolume);
}

void Fault(const char* function) {
    spy::state().faults[function] = {};
}

struct Failure {
    std::function<void()> prepare;
    int (*run)();
    int error;
    std::vector<testing::Matcher<std::string>> logged;
};

void ExpectFailure(const Failure& failure) {
    spy::state() = {};
    VLIBCErrSetEx(0, "", 0);
    std::filesystem::remove_all(kStatistics);
    failure.prepare();
    EXPECT_EQ(failure.run(), -1);
    EXPECT_THAT(spy::LoggedTexts(), testing::ElementsAreArray(failure.logged));
    EXPECT_EQ(VLIBCErrGet(), failure.error);
    EXPECT_FALSE(std::filesystem::exists(kMarker));
}

void ExpectFailures(const std::vector<Failure>& failures) {
    const time_t now = fixedNow;
    for (const Failure& failure : failures) {
        fixedNow = now;
        ExpectFailure(failure);
    }
}

TEST_F(FileRunTest, RunsFailBeforeTheWalk) {
    const auto nothing = [] {};
    const auto noTime = [] { fixedNow = -1; };
    const auto noLocalTime = [] { fixedNow = INT64_MAX; };
    ExpectFailures({
        {nothing, [] { return FlashcacheFileStatistics("v", nullptr); }, 0x0D00, {}},
        {nothing, [] { return FlashcacheDoStatistics("v", nullptr); }, 0x0D00, {}},
        {nothing, [] { return FlashcacheDoStatistics(nullptr, kVolume); }, 0x0D00, {}},
        {noTime, RunPlain, 0, {"Fail to time() in FlashcacheFileStatistics\n"}},
        {noTime, RunSectioned, 0, {"Fail to time() in FlashcacheDoStatistics\n"}},
        {noLocalTime, RunPlain, 0, {"Fail to localtime_r() in FlashcacheFileStatistics\n"}},
        {noLocalTime, RunSectioned, 0, {"Fail to localtime_r() in FlashcacheDoStatistics\n"}},
        {[] { Fault("VLIBCSzHashAlloc"); }, RunSectioned, 0, {}},
    });
}

TEST_F(FileRunTest, RunsFailInTheWalk) {
    const auto nothing = [] {};
    const auto noShares = MatchesRegex(
        "VEMOShareEnumByMntPathAndEnumType fail, path = /nowhere\\[0x0900 [a-z_]+\\.cpp:[0-9]+\\]");
    ExpectFailures({
        {[] { Fault("VLIBCSzListAlloc"); },
         RunPlain,
         0,
         {"pVolShareList alloc fail", "Fail to do file statistics of [/volume1]"}},
        {nothing,
         [] { return FlashcacheFileStatistics("v", "/nowhere"); },
         0x0900,
         {noShares, "Fail to do file statistics of [/nowhere]"}},
        {nothing,
         [] { return FlashcacheDoStatistics("v", "/nowhere"); },
         0x0900,
         {noShares, "Fail to do file statistics of [/nowhere]"}},
    });
}

// 0x2000 is what the platform notes when there was no section to remove.
TEST_F(FileRunTest, RunsFailInTheWriting) {
    const std::string place = "\\[volume_1\\] of \\[/etc/flashcache_file_statistics\\]\\. \\[0x.*\\]";
    ExpectFailures({
        {[] { std::filesystem::create_directory(kStatistics); }, RunPlain, 0x0900, {}},
        {[] { std::filesystem::create_symlink("/dev/full", kStatistics); }, RunPlain, 0x0B00, {}},
        {[] { Fault("VLIBCFileRemoveSection"); },
         RunSectioned,
         0,
         {MatchesRegex("Fail to remove section " + place)}},
        {[] { Fault("VLIBCFileAddSection"); },
         RunSectioned,
         0x2000,
         {MatchesRegex("Fail to set section " + place)}},
        {[] { Fault("VLIBCSzHashSetValue"); }, RunSectioned, 0x2000, {}},
    });
}

// ---- The marker ----

// A run in another process that stops in its walk, until it is killed.
class StoppedRun {
  public:
    explicit StoppedRun(int (*run)()) {
        int ends[2] = {};
        EXPECT_EQ(pipe(ends), 0);
        process_ = fork();
        if (process_ == 0) {
            spy::state().answer = [&](const ToolRun&) -> Answer {
                EXPECT_EQ(write(ends[1], "", 1), 1);
                for (;;) {
                    pause();
                }
            };
            _exit(run());
        }
        char walking = 'x';
        EXPECT_EQ(read(ends[0], &walking, 1), 1);
        close(ends[0]);
        close(ends[1]);
    }
    StoppedRun(const StoppedRun&) = delete;
    StoppedRun& operator=(const StoppedRun&) = delete;
    ~StoppedRun() { Kill(); }
    void Kill() {
        if (process_ > 0) {
            kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
        process_ = 0;
    }
    pid_t Process() const { return process_; }

  private:
    pid_t process_;
};

TEST_F(FileRunTest, OthersSeeARunAndThatItWasKilled) {
    StoppedRun run(RunSectioned);
    char volume[64] = "";
    EXPECT_EQ(FlashcacheFileStatisticsIsProcessing(), 1);
    EXPECT_EQ(FlashcacheCheckFileStatisticsProgressFile(volume, sizeof volume), 1);
    EXPECT_STREQ(volume, "volume_1");
    EXPECT_THAT(ReadWhole(kMarker), HasSubstr("pid=" + std::to_string(run.Process()) + "\n"));
    EXPECT_EQ(RunPlain(), -1);
    EXPECT_EQ(RunSectioned(), -1);
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre(kAlreadyExists, kMarkerFailed, kAlreadyExists, kMarkerFailed));
    EXPECT_EQ(FlashcacheFileStatisticsIsProcessing(), 1);

    run.Kill();
    volume[0] = '\0';
    EXPECT_EQ(FlashcacheFileStatisticsIsProcessing(), 0);
    EXPECT_EQ(FlashcacheCheckFileStatisticsProgressFile(volume, sizeof volume), 0);
    EXPECT_STREQ(volume, "volume_1");
    EXPECT_TRUE(std::filesystem::exists(kMarker));
    EXPECT_EQ(RunSectioned(), -1);
    std::filesystem::remove(kMarker);
    EXPECT_EQ(RunSectioned(), 0);
}

TEST_F(FileRunTest, APlainRunNamesNoVolume) {
    const StoppedRun run(RunPlain);
    char volume[64] = "";
    EXPECT_EQ(FlashcacheFileStatisticsIsProcessing(), 1);
    EXPECT_EQ(FlashcacheCheckFileStatisticsProgressFile(nullptr, 9), 1);
    EXPECT_EQ(FlashcacheCheckFileStatisticsProgressFile(volume, 0), 1);
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
    EXPECT_EQ(FlashcacheCheckFileStatisticsProgressFile(volume, sizeof volume), 0);
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre(MatchesRegex("Fail to get key \\[volume_id\\] from \\[" +
                                                             std::string(kMarker) + "\\]\\. \\[0x.*\\]")));
    std::filesystem::remove(kMarker);
}

void ExpectProcessing(const std::string& marker, int processing, std::size_t logged) {
    WriteWhole(kMarker, marker);
    for (const auto& test : {std::function(FlashcacheFileStatisticsIsProcessing), std::function([] {
                                 return FlashcacheCheckFileStatisticsProgressFile(nullptr, 0);
                             })}) {
        spy::state().log.clear();
        EXPECT_EQ(test(), processing);
        EXPECT_EQ(spy::state().log.size(), logged);
        EXPECT_THAT(
            spy::LoggedTexts(),
            testing::Each(MatchesRegex("Fail to get key \\[(pid|cmd)\\] from \\[.*\\]\\. \\[0x.*\\]")));
    }
    EXPECT_EQ(ReadWhole(kMarker), marker);
}

TEST_F(FileRunTest, OnlyTheProcessThatWroteTheMarkerCounts) {
    VLIBC_PROC* self = VLIBCProcGetByPid(getpid());
    const std::string cmd = self->cmd;
    VLIBCProcFree(self);
    const std::string pid = "pid=" + std::to_string(getpid()) + "\n";
    const struct {
        std::string marker;
        int processing;
        bool logs;
    } cases[] = {
        {pid + "cmd=" + cmd + "\n", 1, false},
        {pid + "cmd=" + cmd + " and more\n", 1, false},
        {pid + "cmd=" + cmd.substr(0, cmd.size() - 1) + "\n", 0, false},
        {pid + "cmd=another\n", 0, false},
        {pid, 0, true},
        {"cmd=" + cmd + "\n", 0, true},
        {"", 0, true},
        {std::string("\0\xff\n=\n", 5) + pid, 0, true},
        {"pid=0\ncmd=" + cmd + "\n", 0, false},
        {"pid=-1\ncmd=" + cmd + "\n", 0, false},
        {"pid=many\ncmd=" + cmd + "\n", 0, false},
        {"pid=99999999999999999999\ncmd=" + cmd + "\n", 0, false},
        {pid + "cmd=" + cmd + std::string(100000, 'x') + "\n", 1, false},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.marker.substr(0, 99));
        ExpectProcessing(test.marker, test.processing, test.logs ? 1 : 0);
    }
    std::filesystem::remove(kMarker);
}

// ---- Reading back ----

constexpr const char* kDay = "Day=2096-06-15 FileCount=12 FileSizeSum=49152 Byte\n";

struct Parsed {
    FLASHCACHE_FILE_STAT_DAY days[8]{};
    char volume[16] = "old";
    char time[16] = "old";
    int result = FlashcacheFileStatisticsGetAndParse(days, 8, volume, sizeof volume, time, sizeof time);
};

TEST_F(FileRunTest, ReadsBackWhatARunWrote) {
    MakeFiles(fixedNow);
    ASSERT_EQ(RunPlain(), 0);
    const Parsed parsed;
    EXPECT_EQ(parsed.result, 0);
    EXPECT_STREQ(parsed.volume, "volume_1");
    EXPECT_STREQ(parsed.time, "2096-06-15 14:3");  // cut to the buffer
    const FLASHCACHE_FILE_STAT_DAY& last = parsed.days[6];
    EXPECT_EQ(last.Year, 2096);
    EXPECT_EQ(last.Month, 6);
    EXPECT_EQ(last.Day, 9);
    EXPECT_EQ(last.FileCount, 1U);
    EXPECT_EQ(last.FileSizeSum, 12288U);
    EXPECT_EQ(parsed.days[7].Year, 0);
}

TEST_F(FileRunTest, ReadsTextsOfEveryKind) {
    const std::string head = "Volume=v\nTime=t\n";
    const struct {
        std::string text;
        int result;
        const char* volume;
        int64_t rows;
        const char* logged;
    } cases[] = {
        {"", 0, "", 0, nullptr},
        {"Volume=v\n", 0, "v", 0, nullptr},
        {head, 0, "v", 0, nullptr},
        {head + kDay + kDay, 0, "v", 2, nullptr},
        {head + kDay + "Day=2096", 0, "v", 2, nullptr},
        {head + std::string(9, '\n').replace(0, 1, kDay), -1, "v", 1,
         "Fail to sscanf() in FlashcacheFileStatisticsGetAndParse()"},
        {"Volume=\n", -1, "old", 0, "Fail to parse volume name!"},
        {"[volume_1]\nTime=t\n", -1, "old", 0, "Fail to parse volume name!"},
        {"Volume=v\nDay=\n", -1, "v", 0, "Fail to parse time!"},
        {"Volume=" + std::string(100000, 'v') + "\nTime=t\n" + kDay, 0, "vvvvvvvvvvvvvvv", 1, nullptr},
        {std::string("\0\0\xff\n", 4), -1, "old", 0, "Fail to parse volume name!"},
    };
    for (const auto& test : cases) {
        spy::state().log.clear();
        WriteWhole(kStatistics, test.text);
        const Parsed parsed;
        EXPECT_EQ(parsed.result, test.result) << test.text.substr(0, 99);
        EXPECT_STREQ(parsed.volume, test.volume);
        EXPECT_EQ(std::count_if(std::begin(parsed.days), std::end(parsed.days),
                                [](const auto& day) { return day.Year == 2096; }),
                  test.rows);
        EXPECT_EQ(spy::LoggedTexts(), test.logged == nullptr ? std::vector<std::string>()
                                                             : std::vector<std::string>{test.logged});
    }
}

TEST_F(FileRunTest, RefusesBadArguments) {
    FLASHCACHE_FILE_STAT_DAY days[7]{};
    char text[4] = "";
    const auto parse = [&](FLASHCACHE_FILE_STAT_DAY* rows, int count, int volumeSize, int timeSize) {
        return FlashcacheFileStatisticsGetAndParse(rows, count, text, volumeSize, text, timeSize);
    };
    for (const int bad : {0, 1, 2, 3}) {
        VLIBCErrSetEx(0, "", 0);
        EXPECT_EQ(parse(bad == 0 ? nullptr : days, bad == 1 ? 6 : 7, bad == 2 ? -1 : 4, bad == 3 ? -1 : 4),
                  -1);
        EXPECT_EQ(VLIBCErrGet(), 0x0D00);
    }
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
}

TEST_F(FileRunTest, ReadsNoMoreThanThereIs) {
    FLASHCACHE_FILE_STAT_DAY days[7]{};
    EXPECT_EQ(FlashcacheFileStatisticsDataIsExist(), 0);
    EXPECT_EQ(FlashcacheFileStatisticsGetAndParse(days, 7, nullptr, 0, nullptr, 0), -1);
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre("Fail to access() [/etc/flashcache_file_statistics] in "
                                                "FlashcacheFileStatisticsGetAndParse()"));
    WriteWhole(kStatistics, std::string("Volume=v\nTime=t\n") + kDay);
    EXPECT_EQ(FlashcacheFileStatisticsGetAndParse(days, 7, nullptr, 0, nullptr, 0), 0);
    EXPECT_EQ(days[0].FileCount, 12U);
}

}  // namespace
