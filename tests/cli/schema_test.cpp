// Every JSON answer of the tool is as docs/schema has it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "cli/schema.h"
#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr const char* kEnd = ".schema.json";

Json SchemaOf(const std::string& name) {
    std::ifstream file(std::filesystem::path(VEMO_SCHEMA_FOLDER) / (name + kEnd));
    std::ostringstream text;
    text << file.rdbuf();
    const Json schema = Json::Parse(text.str());
    EXPECT_TRUE(schema.IsObject()) << name;
    return schema;
}

// What the tool answers, by which schema; without a schema, what happens to the appliance in between.
struct Answered {
    const char* schema;
    Words words;
    int code = 0;
};
using Story = std::vector<Answered>;

const Story kOfCaches = {
    {"list", {"list"}},
    {"plan", {"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "64M", "--dry-run"}},
    {"create", {"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "64M"}},
    {"plan", {"delete", "cachedev_0", "--dry-run"}},
    {"plan", {"load", "--all", "--dry-run"}},
    {"create", {"create", "/dev/md4", "/dev/vg1/volume_2", "--size", "32M", "--mode", "thru"}},
    {"list", {"list"}},
    {"status", {"status"}},
    {"stats", {"stats"}},
    {"stats-watch", {"stats", "--watch", "0.1", "--count", "2"}},
    {"stats-fields", {"stats", "--fields"}},
    {"knob-get", {"knob", "get", "cachedev_0"}},
    {"knob-set", {"knob", "set", "cachedev_0", "dirty_thresh_pct", "40"}},
    {"state", {"state", "get", "cachedev_0"}},
    {"state", {"state", "set", "cachedev_0", "normal"}},
    {"attribute", {"attribute", "get", "cachedev_0"}},
    {"attribute", {"attribute", "set", "cachedev_0", "none"}},
    {"config-list", {"config", "list"}},
    {"config-entry", {"config", "show", "md3+volume_1"}},
    {"modules", {"modules"}},
    {"size", {"size"}},
    {"size", {"size", "cachedev_0"}},
    {"memory", {"memory"}},
    {"memory", {"memory", "--filter", "name=md3+volume_1"}},
    {"advise-cache", {"advise", "cache", "cachedev_0"}},
    {nullptr, {"sh", "-c", "printf '17,W,0,4096,1\\n17,R,0,4096,2000000\\n' > /tmp/trace.csv"}},
    {"advise-trace", {"advise", "trace", "/tmp/trace.csv"}},
    {"advise-trace", {"advise", "trace", "/tmp/trace.csv", "--size", "64M", "--mode", "around"}},
    {"probe", {"probe", "/dev/md3"}},
    {"probe", {"probe", "/dev/vg1/volume_1"}, kNo},
    {"expand", {"expand", "cachedev_0"}},
    {"flush", {"flush", "--status", "cachedev_0"}},
    {"flush", {"flush", "cachedev_0"}},
    {"doctor", {"doctor"}},
    {"attribute", {"attribute", "set", "cachedev_0", "force-remove", "--ignore-write-errors"}},
    {"doctor", {"doctor"}, 2},
    {"doctor-mute", {"doctor", "--mute", "VFC-D063:cachedev_0", "--for", "1h"}},
    {"doctor", {"doctor", "--check", "VFC-D063"}},
    {"report", {"report", "--seconds", "0.1", "/tmp/report.tar.gz"}},
    {"doctor-mutes", {"doctor", "--mutes"}},
    {"doctor-unmuted", {"doctor", "--unmute", "VFC-D063:md3+volume_1"}},
    {"attribute", {"attribute", "set", "cachedev_0", "none"}},
    {"doctor-checks", {"doctor", "--list-checks"}},
    {"doctor-check", {"doctor", "--explain", "VFC-D063"}},
    {"config-copy", {"config", "refresh"}},
    {"config-entry", {"config", "correct", "md3+volume_1"}},
    {"unload", {"unload", "cachedev_0"}},
    {"list", {"list"}},
    {"status", {"status"}},
    {"stats", {"stats"}},
    {"stats-watch", {"stats", "--watch", "0.1", "--count", "1"}},
    {"load", {"load", "md3+volume_1"}},
    {"list", {"load", "--all"}},
    {"error", {"unload", "nothing"}, 1},
    {"error", {"list", "-o", "nothing"}, kUsage},
    {"delete", {"delete", "cachedev_0"}},
    {"unload-all", {"unload", "--all"}},
    {"unload-all", {"unload", "--all"}},
    {"wipe", {"wipe", "/dev/md4", "--discard-metadata"}},
    {"config-removed", {"config", "remove", "md4+volume_2", "--forget-cache"}},
};

const Story kOfTheRest = {
    {"create", {"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "64M"}},
    {"ssd-check", {"ssd", "check", "QM-S400", "480G"}},
    {"ssd-list", {"ssd", "list"}},
    {"error", {"ssd", "update"}, 1},
    {nullptr, {"mkfs.ext4", "-q", "/dev/mapper/cachedev_0"}},
    {nullptr, {"mount", "/dev/mapper/cachedev_0", "/volume1"}},
    {nullptr, {"mkdir", "/volume1/share"}},
    {nullptr, {"cp", "/etc/passwd", "/volume1/share"}},
    {nullptr, {"sync"}},
    {"filestat-status", {"filestat", "status"}},
    {"filestat-clear", {"filestat", "clear"}},
    {"filestat-ages", {"filestat", "run", "/volume1"}},
    {"filestat-ages", {"filestat", "show"}},
    {"advise-volume", {"advise", "volume", "/volume1"}},
    {"advise-volume", {"advise", "volume", "/volume1", "--ssd", "/dev/md3"}},
    {"pin-files", {"pin", "add", "/volume1", "/volume1/share/passwd"}},
    {"pin-files", {"pin", "add", "/volume1", "/volume1/share/none"}, 1},
    {"pin-files", {"pin", "remove", "/volume1", "/volume1/share/passwd"}},
    {"pin-file", {"pin", "check", "/volume1/share/passwd"}, kNo},
    {"pin-support", {"pin", "list-support"}},
    {"pin-bitmap", {"pin", "bitmap", "/volume1"}},
    {"pin-mounted", {"pin", "mount", "/volume1"}},
    {nullptr, {"umount", "/volume1"}},
    {"serials-set", {"serials", "set", "c", "S1", "S2"}},
    {"serials-get", {"serials", "get", "c"}},
    {"serials-check", {"serials", "check", "c", "S1"}},
    {"serials-remove", {"serials", "remove", "c", "--discard-list"}},
    {"notify", {"notify", "md3+volume_1"}},
    {"apm", {"apm", "set", "k"}},
    {"apm", {"apm", "get", "k"}},
};

// Lines of a flush that tell how far it is have a schema of their own.
void ExpectValid(const std::string& name, const std::string& line) {
    const Json answer = Json::Parse(line);
    const Json schema = SchemaOf(answer["progress"].IsObject() ? "flush-progress" : name);
    EXPECT_THAT(WrongBy(schema, answer), IsEmpty()) << name << ": " << line;
}

void Tell(const Story& story) {
    for (auto [schema, words, code] : story) {
        if (schema == nullptr) {
            ASSERT_EQ(RunProgram(words).code, code) << words.front();
            continue;
        }
        words.emplace_back("--json");
        const Ran ran = Tool(words);
        EXPECT_EQ(ran.code, code) << words[0] << ran.out << ran.err;
        std::istringstream lines(ran.out);
        for (std::string line; std::getline(lines, line);) {
            ExpectValid(schema, line);
        }
    }
}

TEST(Schema, HoldsForAnswersOnCaches) {
    Tell(kOfCaches);
}

TEST(Schema, HoldsForAllOtherAnswers) {
    Tell(kOfTheRest);
}

TEST(Schema, OfEachKindIsTried) {
    // There is no server to update from, and a report's document is in its archive: cases_test has some.
    std::set<std::string> tried = {"flush-progress", "ssd-update", "report-document"};
    for (const auto& story : {kOfCaches, kOfTheRest}) {
        for (const auto& one : story) {
            tried.insert(one.schema == nullptr ? "" : one.schema);
        }
    }
    for (const auto& file : std::filesystem::directory_iterator(VEMO_SCHEMA_FOLDER)) {
        const std::string name = file.path().filename().string();
        EXPECT_TRUE(tried.contains(name.substr(0, name.size() - std::string(kEnd).size()))) << name;
    }
}

TEST(Schema, OfStatisticsSaysWhatTheFieldsMean) {
    const std::pair<const char*, const char*> views[] = {{"stats", "since load"}, {"stats-watch", "--watch"}};
    const Json fields = Answer({"stats", "--fields"})["fields"];
    for (const auto& [name, view] : views) {
        const Json described = SchemaOf(name)["$defs"]["record"]["properties"];
        Words keys;
        for (const Json& field : fields) {
            if (!(field["told"] == view) && !(field["told"] == "both")) {
                continue;
            }
            const std::string key(field["key"]);
            keys.push_back(key);
            std::string meaning(field["meaning"]);
            if (!(field["kind"] == "state")) {
                meaning += "; a " + std::string(field["kind"]) +
                           (field["unit"].IsNull() ? "" : " in " + std::string(field["unit"]));
            }
            EXPECT_EQ(described[key]["description"], meaning) << key;
        }
        EXPECT_THAT(described.Keys(), ::testing::UnorderedElementsAreArray(keys));
    }
}

TEST(Schema, RefusesWhatIsNotSo) {
    const Json schema = SchemaOf("memory");
    const std::pair<const char*, const char*> wrong[] = {
        {R"({"format_version":3,"caches":[]})", "/format_version: 3 is not 2"},
        {R"({"format_version":2})", ": has no caches"},
        {R"({"format_version":2,"caches":[],"more":1})", ": has more in excess"},
        {R"({"format_version":2,"caches":{}})", "/caches: {} is no array"},
        {R"({"format_version":2,"caches":[{"name":"a","metadata_bytes":-1,"fixed_bytes":1}]})",
         "/caches/0/metadata_bytes: -1 is too little"},
        {R"({"format_version":2,"caches":[{"name":"a","metadata_bytes":1.5,"fixed_bytes":1}]})",
         R"(/caches/0/metadata_bytes: 1.5 is of no type of ["integer","null"])"},
        {R"({"format_version":2,"caches":[{"name":null,"metadata_bytes":1,"fixed_bytes":1}]})",
         "/caches/0/name: null is no string"}};
    for (const auto& [document, why] : wrong) {
        EXPECT_THAT(WrongBy(schema, Json::Parse(document)), Contains(why)) << document;
    }
    const Json odd = Json::Parse(R"({"pattern":"x","enum":["a"],"maximum":3,"$ref":"#/$defs/b"})");
    EXPECT_THAT(WrongBy(odd, Json::Parse("4")), SizeIs(4));
}

}  // namespace
}  // namespace tests
