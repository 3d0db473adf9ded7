// Each report in tests/cases, booted on a simulated appliance: doctor finds there what the report holds, and
// the caches are as it tells. To add a case is to add its report.json.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "cli/schema.h"
#include "cli/tool.h"
#include "support/private_folder.h"

namespace tests {
namespace {

using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

// Codes and caches, in an order of their own: that of the answer goes by names.
Words FoundIn(const Json& findings) {
    Words found;
    for (const Json& finding : findings) {
        found.push_back(std::string(finding["code"]) + " " + std::string(finding["caches"]));
    }
    std::sort(found.begin(), found.end());
    return found;
}

// The files that make up the configuration and what was left behind, with their text and owner.
Words FilesIn(const Json& report) {
    Words files;
    for (const Json& item : report["items"]) {
        const std::string name(item["name"]);
        const bool isKept = name.starts_with("/usr/vemo/etc/") || name.starts_with("/tmp/");
        if (isKept && item["exists"] == true && !name.ends_with(".unloaded")) {
            files.push_back(name + " " + std::string(item["user"]) + "\n" + std::string(item["text"]));
        }
    }
    return files;
}

// What the machine runs, with the tool in PATH.
Ran Boot(const std::string& report, const std::string& script) {
    const std::string tools = fs::path(VEMOCACHECTL_PATH).parent_path();
    return RunProgram({"env", "PATH=" + tools + ":/usr/sbin:/usr/bin:/sbin:/bin", VEMO_APPLIANCE_PATH,
                       "--from-report", report, "sh", "-c", script});
}

std::vector<std::string> Cases() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(VEMO_CASES_FOLDER)) {
        if (entry.path().extension() == ".json") {
            names.push_back(entry.path().stem());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

class ReportedCase : public ::testing::TestWithParam<std::string> {};

TEST_P(ReportedCase, IsRebuilt) {
    const fs::path path = fs::path(VEMO_CASES_FOLDER) / (GetParam() + ".json");
    const Json report = Json::Parse(ReadText(path));
    const Json schema = Json::Parse(ReadText(fs::path(VEMO_SCHEMA_FOLDER) / "report-document.schema.json"));
    ASSERT_TRUE(schema.IsObject());
    EXPECT_THAT(WrongBy(schema, report), ::testing::IsEmpty());
    const Ran ran =
        Boot(path,
             "vemocachectl doctor --json; vemocachectl report -q --plain --seconds 0.1 /tmp/r >&2; "
             "tar xzOf /tmp/r vemocachectl-report/report.json");
    ASSERT_EQ(ran.code, 0) << ran.err;
    const auto end = ran.out.find('\n');
    const Json again = Json::Parse(ran.out.substr(end + 1));
    EXPECT_THAT(WrongBy(schema, again), ::testing::IsEmpty());
    EXPECT_THAT(FoundIn(Json::Parse(ran.out.substr(0, end))["findings"]),
                ElementsAreArray(FoundIn(report["findings"])))
        << ran.out.substr(0, end);
    ASSERT_EQ(again["caches"].size(), report["caches"].size());
    for (std::size_t i = 0; i < report["caches"].size(); ++i) {
        for (const char* key : {"name", "state", "device", "entry", "kernel"}) {
            EXPECT_EQ(again["caches"][i][key], report["caches"][i][key]) << key;
        }
        for (const char* key : {"path", "exists", "bytes", "superblock"}) {
            EXPECT_EQ(again["caches"][i]["ssd"][key], report["caches"][i]["ssd"][key]) << key;
        }
        EXPECT_EQ(again["caches"][i]["volume"]["bytes"], report["caches"][i]["volume"]["bytes"]);
    }
    EXPECT_THAT(FilesIn(again), ElementsAreArray(FilesIn(report)));
}

INSTANTIATE_TEST_SUITE_P(Of, ReportedCase, ::testing::ValuesIn(Cases()), [](const auto& info) {
    std::string name = info.param;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
});

void Replace(std::string& text, const std::string& from, const std::string& to) {
    const auto at = text.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    text.replace(at, from.size(), to);
}

constexpr int kApplianceFailed = 125;

// Nothing is booted into another state than the reported one.
TEST(FromReport, RefusesWhatCannotBeRebuilt) {
    struct Change {
        const char* from;
        const char* to;
        const char* why;
    };
    const Change changes[] = {
        {R"("format_version": 1)", R"("format_version": 9)", "format version 9"},
        {R"("code": "VFC-D063")", R"("code": "VFC-D050")", "what raises VFC-D050 cannot be brought about"},
        {R"("running": false)", R"("running": true)", "a flush of ssd-1+volume-1 was running"},
        {R"("state": "running")", R"("state": "unknown")", "whether ssd-1+volume-1 is up is not known"},
        {R"("block_size": 65536)", R"("block_size": 8192)", "tells of another cache"},
        {R"("blocks": 1024)", R"("blocks": 99999999)", "99999999 blocks"},
        {R"("unmade": [])", R"("unmade": ["files: no memory"])", "lacks a part: files: no memory"},
        {R"("path": "/dev/ssd-1")", R"("path": "/dev/../etc")", "is no device below /dev"},
        {R"("configuration")", R"("other")", "no whole report"},
        {R"({)", R"([)", "no whole report"}};
    const PrivateFolder folder;
    for (const auto& [from, to, why] : changes) {
        std::string text = ReadText(fs::path(VEMO_CASES_FOLDER) / "force-remove-left-set.json");
        Replace(text, from, to);
        std::ofstream(folder / "case.json") << text;
        const Ran ran = Boot(folder / "case.json", "echo booted");
        EXPECT_EQ(ran.code, kApplianceFailed) << why;
        EXPECT_EQ(ran.out, "") << why;
        EXPECT_THAT(ran.err, HasSubstr(why));
    }
    std::ofstream(folder / "other.json") << "{}";
    EXPECT_THAT(Boot(folder / "other.json", "true").err, HasSubstr("no report"));
    EXPECT_EQ(Boot(folder / "none.json", "true").code, kApplianceFailed);
}

TEST(FromReport, TakesTheArchive) {
    const PrivateFolder folder;
    const Ran made = RunProgram(
        {VEMO_APPLIANCE_PATH, "--state", folder / "state", "sh", "-c",
         "set -e; tool=" VEMOCACHECTL_PATH "; $tool create /dev/md3 /dev/vg1/volume_1 --size 16M; "
         "$tool knob set cachedev_0 fallow_delay 77; $tool report --seconds 0.1 /usr/vemo/etc/r.tar.gz"});
    ASSERT_EQ(made.code, 0) << made.err;
    const std::string archive = folder / "state/usr-vemo-etc/r.tar.gz";
    const Ran ran = Boot(archive,
                         "vemocachectl list --no-headings -o name,state,device,size_bytes --bytes; "
                         "vemocachectl knob get cachedev_0 fallow_delay --no-headings -o value");
    EXPECT_EQ(ran.out, "ssd-1+volume-1  running  cachedev_0  16777216\n77\n") << ran.err;
    fs::resize_file(archive, fs::file_size(archive) / 2);
    EXPECT_THAT(Boot(archive, "true").err, HasSubstr("damaged"));
    EXPECT_EQ(RunProgram({VEMO_APPLIANCE_PATH, "--from-report", archive, "--pairs", "2", "true"}).code,
              kApplianceFailed);
}

}  // namespace
}  // namespace tests
