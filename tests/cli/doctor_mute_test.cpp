// Findings that the admin muted: told, not counted, and back when their time is over or they grow worse.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;

constexpr int kWarning = 1;
constexpr int kCritical = 2;
constexpr int kRefused = 3;
constexpr const char* kMutes = "/usr/vemo/etc/vemocachectl/doctor.mutes";

Json MuteIt(const std::string& what, const std::string& time = "7d") {
    return Answer({"doctor", "--mute", what, "--for", time})["mute"];
}

void ReportErrors(int count) {
    Fault("errors", std::to_string(count));
}

int Code() {
    return Tool({"doctor"}).code;
}

TEST(DoctorMute, IsToldAndDoesNotCount) {
    CreateDirtyCache();
    ReportErrors(3);
    ASSERT_EQ(Code(), kCritical);
    const auto mute = MuteIt("VFC-D080");
    EXPECT_EQ(mute["code"], "VFC-D080");
    EXPECT_EQ(mute["cache"], nullptr);
    EXPECT_EQ(mute["severity"], "critical");
    EXPECT_EQ(mute["count"], 3);
    const auto answer = Answer({"doctor"});
    EXPECT_EQ(answer["findings"][0]["muted"], true);
    EXPECT_EQ(answer["findings"][0]["muted_until"], mute["muted_until"]);
    EXPECT_EQ(answer["findings"][0]["severity"], "critical");
    EXPECT_EQ(answer["total"]["muted"], 1);
    EXPECT_EQ(answer["total"]["critical"], 0);
    EXPECT_THAT(Tool({"doctor"}).out, HasSubstr("muted     VFC-D080  md3+volume_1\n"));
    EXPECT_THAT(Tool({"doctor"}).out, HasSubstr("(critical, muted until"));
    EXPECT_EQ(Tool({"doctor", "--check", "VFC-D080"}).code, 0);
    EXPECT_EQ(Tool({"doctor", "--deep", "md3+volume_1"}).code, 0);
    EXPECT_EQ(Answer({"doctor", "--mutes"})["mutes"][0], mute);
    ASSERT_EQ(Tool({"doctor", "--unmute", "VFC-D080"}).code, 0);
    EXPECT_EQ(Code(), kCritical);
    EXPECT_THAT(Tool({"doctor", "--mutes"}).out, HasSubstr("Nothing is muted."));
}

TEST(DoctorMute, EndsWhenTheCountGrowsAndStaysEnded) {
    CreateDirtyCache();
    ReportErrors(3);
    MuteIt("VFC-D080");
    ReportErrors(2);
    EXPECT_EQ(Code(), 0);
    ReportErrors(4);
    EXPECT_EQ(Tool({"doctor", "--check", "VFC-D063"}).code, 0) << "another check, and yet it is seen";
    ReportErrors(3);
    EXPECT_EQ(Code(), kCritical);
    EXPECT_TRUE(Answer({"doctor", "--mutes"})["mutes"].empty());
}

TEST(DoctorMute, EndsWhenTheSeverityRises) {
    CreateCache();
    Fault("cleaning", "pause");
    ASSERT_EQ(Tool({"knob", "set", "cachedev_0", "dirty_thresh_pct", "0"}).code, 0);
    const auto write = [](const char* blocks) {
        ASSERT_EQ(RunProgram({"dd", "if=/dev/urandom", "of=/dev/mapper/cachedev_0", "bs=64k",
                              std::string("count=") + blocks, "oflag=direct"})
                      .code,
                  0);
    };
    write("20");
    EXPECT_EQ(MuteIt("VFC-D070")["severity"], "info");
    write("40");
    EXPECT_EQ(Code(), 0);
    write("200");
    EXPECT_EQ(Code(), kWarning);
}

TEST(DoctorMute, EndsWithItsTime) {
    CreateCache();
    ASSERT_EQ(Tool({"state", "set", "cachedev_0", "repairing"}).code, 0);
    MuteIt("VFC-D062", "30m");
    EXPECT_EQ(Code(), 0);
    std::ifstream file(kMutes);
    std::string code;
    std::string until;
    std::string rest;
    file >> code >> until;
    std::getline(file, rest);
    std::ofstream(kMutes) << "rubbish\n" << code << "\t1000000000" << rest << "\n";
    EXPECT_EQ(Code(), kWarning);
    std::ofstream(kMutes) << "rubbish\n" << code << "\t" << until << rest << "\n";
    EXPECT_EQ(Code(), 0);
}

TEST(DoctorMute, IsOfOneCacheWhereItNamesOne) {
    CreateCache();
    ASSERT_EQ(Tool({"create", "/dev/md4", "/dev/vg1/volume_2", "--size", "32M"}).code, 0);
    ASSERT_EQ(Tool({"state", "set", "cachedev_0", "repairing"}).code, 0);
    EXPECT_EQ(MuteIt("VFC-D062:/dev/md3")["cache"], "md3+volume_1");
    EXPECT_EQ(Code(), 0);
    ASSERT_EQ(Tool({"state", "set", "cachedev_1", "repairing"}).code, 0);
    EXPECT_EQ(Code(), kWarning);
    EXPECT_EQ(Answer({"doctor"}, kWarning)["total"]["muted"], 1);
    EXPECT_EQ(Tool({"doctor", "--unmute", "VFC-D062"}).code, kRefused);
    EXPECT_EQ(Tool({"doctor", "--unmute", "VFC-D062:md3+volume_1"}).code, 0);
}

TEST(DoctorMute, IsOfWhatIsFoundAndForATime) {
    CreateCache();
    EXPECT_THAT(Tool({"doctor", "--mute", "VFC-D062", "--for", "7d"}).err, HasSubstr("no finding VFC-D062"));
    ASSERT_EQ(Tool({"state", "set", "cachedev_0", "repairing"}).code, 0);
    for (const char* time : {"7", "d", "-1d", "0d", "7y", "1.5d", "99999d", "99999999999999999999d", ""}) {
        EXPECT_EQ(Tool({"doctor", "--mute", "VFC-D062", "--for", time}).code, kRefused) << time;
    }
    EXPECT_EQ(Code(), kWarning);
    for (const char* time : {"1m", "12h", "365d", "52w"}) {
        MuteIt("VFC-D062", time);
    }
    EXPECT_EQ(Answer({"doctor", "--mutes"})["mutes"].size(), 1U) << "the last one counts";
}

}  // namespace
}  // namespace tests
