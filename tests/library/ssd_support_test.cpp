// Which SSDs are supported, the database as a list, and its download.
#include <cstdio>
#include <filesystem>

#include "support/library_test.h"

namespace {

using spy::Answer;
using spy::ToolRun;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr const char* kDatabase = "/etc.defaults/support_ssd.db";
constexpr const char* kModelFile = "/etc.defaults/vemoinfo.conf";
constexpr const char* kVersionFile = "/etc.defaults/VERSION";
constexpr uint64_t kGiB = 1ULL << 30U;

class SsdSupportTest : public LibraryTest {
  protected:
    SsdSupportTest() {
        WriteWhole(kVersionFile, "buildnumber=\"1000\"\n");
        WriteWhole(kModelFile, "upnpmodelname=\"VX\"\n");
    }
    static int Check(const char* model, uint64_t size) {
        const FLASHCACHE_SSD_INFO ssd{model, size};
        return VEMOFlashCacheCheckSSDSupport(&ssd);
    }
};

TEST_F(SsdSupportTest, ModelAndSizePickTheFirstSectionThatFits) {
    const std::string yes = "\nVX=1000\n";
    const std::string no = "\nVX=1001\n";
    const struct {
        std::string database;
        const char* model;
        uint64_t size;
        int supported;
    } cases[] = {
        {"[X|120]" + yes, "X", 120 * kGiB, 1},
        {"[X|120]" + yes, "X", 108 * kGiB, 1},
        {"[X|120]" + yes, "X", 108 * kGiB - 1, 0},
        {"[X|120]" + yes, "X", 132 * kGiB, 1},
        {"[X|120]" + yes, "X", 132 * kGiB + 1, 0},
        {"[X|1]" + yes, "X", kGiB - kGiB / 10, 1},  // a tenth, rounded down
        {"[X|1]" + yes, "X", kGiB - kGiB / 10 - 1, 0},
        {"[X|120GB]" + yes, "X", 120 * kGiB, 1},
        {"[X|120|240]" + yes, "X", 240 * kGiB, 0},
        {"[X|GB]" + yes + "[X|]" + yes + "[X| 120]" + yes + "[X|-120]" + yes, "X", 120 * kGiB, 0},
        {"[X]" + yes + "[X 120]" + yes, "X", 120 * kGiB, 0},
        {"[X|120]" + yes, "\t X ", 120 * kGiB, 1},
        {"[X|120]" + yes, "x", 120 * kGiB, 0},
        {"[X|120]" + yes, "X|120", 120 * kGiB, 0},
        {"[X|120]" + yes, "XY", 120 * kGiB, 0},
        {"[|120]" + yes, "", 120 * kGiB, 1},
        {"[X-PRO|120]" + no + "[X|120]" + yes, "X", 120 * kGiB, 0},
        {"[X|120]" + yes + "[X-PRO|120]" + no, "X", 120 * kGiB, 1},
        {"[X-PRO|240]" + no + "[X|120]" + yes, "X", 120 * kGiB, 1},
        {"[X|18446744073709551616]" + yes, "X", 16 * kGiB, 0},
        {"[X|17179869304]" + yes, "X", 120 * kGiB, 0},  // whose bytes would wrap round to 120 GiB
        {"[X|17179869183]" + yes, "X", UINT64_MAX, 0},
    };
    for (const auto& test : cases) {
        WriteWhole(kDatabase, test.database);
        EXPECT_EQ(Check(test.model, test.size), test.supported)
            << test.database << test.model << " " << test.size;
    }
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
}

TEST_F(SsdSupportTest, SupportBeginsWithABuild) {
    const struct {
        const char* keys;
        const char* build;
        int supported;
    } cases[] = {
        {"VX=1000", "1000", 1},
        {"VX=1001", "1000", 0},
        {"VX=999", "1000", 1},
        {"VX=1000", "  1000\t", 1},
        {"VX=1000", "1000-7", 1},
        {"VX=", "1000", 1},
        {"VX=-1", "0", 1},
        {"VX=4294967296", "1000", 0},
        {"VX=99999999999999999999", "1000", 0},
        {"VX=0", "-99999999999999", 0},
        {"VXY=1\nvx=1\nV=1", "1000", 0},
        {"brand=b", "1000", 0},
        {"VX=1001\nVX=1000", "1000", 0},
    };
    for (const auto& test : cases) {
        WriteWhole(kDatabase, std::string("[X|120]\n") + test.keys + "\n");
        WriteWhole(kVersionFile, std::string("buildnumber=\"") + test.build + "\"\n");
        EXPECT_EQ(Check("X", 120 * kGiB), test.supported) << test.keys;
        EXPECT_EQ(VEMOFlashCacheIsSSDSupport("X|120"), test.supported) << test.keys;
    }
    EXPECT_EQ(VEMOFlashCacheIsSSDSupport(" \tX|120\n"), 0);
    WriteWhole(kDatabase, "[X|120]\nVX=1\n");
    WriteWhole(kVersionFile, "buildnumber=1\n");
    EXPECT_EQ(VEMOFlashCacheIsSSDSupport(" \tX|120\n"), 1);
    for (const char* other : {"X", "X|12", "X|1200", "", "]", "X|120\nVX"}) {
        EXPECT_EQ(VEMOFlashCacheIsSSDSupport(other), 0) << other;
    }
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
}

TEST_F(SsdSupportTest, WhatIsMissingIsToldInTheOrderOfNeed) {
    WriteWhole(kDatabase, "[X|120]\nVX=1\n");
    const FLASHCACHE_SSD_INFO bad[] = {{nullptr, 1}, {"X", 0}};
    for (const FLASHCACHE_SSD_INFO* ssd :
         {&bad[0], &bad[1], static_cast<const FLASHCACHE_SSD_INFO*>(nullptr)}) {
        VLIBCErrSetEx(0, "", 0);
        EXPECT_EQ(VEMOFlashCacheCheckSSDSupport(ssd), 0);
        EXPECT_EQ(VLIBCErrGet(), 0x0D00);
    }
    EXPECT_EQ(VEMOFlashCacheIsSSDSupport(nullptr), 0);
    const std::string failed = std::string(" for ") + kDatabase + ", \\[0x[0-9A-F]{4} .*:[0-9]+\\]";
    const struct {
        const char* fault;
        testing::Matcher<std::string> logged;
        bool both;  // the check by name meets it too
    } faults[] = {
        {"VLIBCSzListAlloc", MatchesRegex("Failed to alloc list" + failed), false},
        {"VLIBCSzHashAlloc", MatchesRegex("Failed to alloc hash" + failed), true},
        {"VLIBCFileEnumSection", std::string("Fail to enum sections of [") + kDatabase + "]", false},
    };
    for (const auto& test : faults) {
        spy::state() = {};
        spy::state().faults[test.fault] = {1, true};
        EXPECT_EQ(Check("X", 120 * kGiB), 0);
        EXPECT_EQ(VEMOFlashCacheIsSSDSupport("X|120"), test.both ? 0 : 1);
        EXPECT_THAT(spy::LoggedTexts(), testing::Each(test.logged));
        EXPECT_EQ(spy::state().log.size(), test.both ? 2U : 1U);
    }
    spy::state() = {};
    WriteWhole(kModelFile, "");
    EXPECT_EQ(Check("X", 120 * kGiB) + VEMOFlashCacheIsSSDSupport("X|120"), 0);
    std::filesystem::remove(kVersionFile);
    EXPECT_EQ(Check("X", 120 * kGiB) + VEMOFlashCacheIsSSDSupport("X|120"), 0);
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre("cannot get model name", "cannot get model name",
                                                "cannot get build numner", "cannot get build numner"));
}

// ---- The list ----

// The database as handed out, a text of five fields an entry; "-" for what is absent.
std::vector<std::string> List(int expected) {
    FLASHCACHE_SUPPORT_SSD_LIST* list = nullptr;
    EXPECT_EQ(VEMOFlashCacheSupportSSDGet(&list), expected);
    std::vector<std::string> entries;
    for (const auto* node = list; node != nullptr; node = node->Next) {
        std::string fields;
        for (const char* field : {node->SSD->Name, node->SSD->Brand, node->SSD->Size, node->SSD->Since,
                                  node->SSD->SupportModels}) {
            fields += std::string(field == nullptr ? "-" : field) + ";";
        }
        entries.push_back(fields);
    }
    VEMOFlashCacheSupportSSDFree(list);
    return entries;
}

TEST_F(SsdSupportTest, HandsTheDatabaseOutInItsOrder) {
    WriteWhole(kDatabase,
               "[ B|2 ]\nbrand = b \nsize=2 GB\nsince=4.1\nsupport_models= VX, VY \nVX=1\n"
               "[A]\nsize=\n[C|1]\nbrand=c\n");
    EXPECT_THAT(List(3), ElementsAre("B|2;b;2 GB;4.1;VX, VY;", "A;-;;-;-;", "C|1;c;-;-;-;"));
    WriteWhole(kDatabase, "brand=nobody's\n");
    EXPECT_THAT(List(0), IsEmpty());
    FLASHCACHE_SUPPORT_SSD_LIST untouched{};
    std::filesystem::remove(kDatabase);
    FLASHCACHE_SUPPORT_SSD_LIST* list = &untouched;
    EXPECT_EQ(VEMOFlashCacheSupportSSDGet(&list), 0);
    EXPECT_EQ(list, &untouched);
    EXPECT_EQ(Check("X", 1) + VEMOFlashCacheIsSSDSupport("X|120"), 0);
}

TEST_F(SsdSupportTest, AFailureTakesBackTheWholeList) {
    WriteWhole(kDatabase, "[A|1]\nbrand=a\nsize=1\n[B|1]\nbrand=b\nsupport_models=VX\n");
    for (const char* function : {"VLIBCSzListAlloc", "VLIBCSzHashAlloc", "VLIBCFileEnumSection"}) {
        spy::state().faults[function] = {};
        EXPECT_THAT(List(-1), IsEmpty()) << function;
    }
    for (int call = 1; call <= 6; ++call) {
        spy::state().faults["VLIBCStrTrimSpace"] = {call};
        EXPECT_THAT(List(-1), IsEmpty()) << call;
    }
    EXPECT_EQ(List(2).size(), 2U);
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
    EXPECT_EQ(VEMOFlashCacheSupportSSDGet(nullptr), -1);
    VEMOFlashCacheSupportSSDFree(nullptr);
}

// ---- Databases that nobody should write ----

TEST_F(SsdSupportTest, StrangeTextsDoNoHarm) {
    const std::string longKey(4096, 'k');
    std::string bytes;
    for (int i = 0; i < 4096; ++i) {
        bytes += static_cast<char>(i % 256);
    }
    const std::string texts[] = {
        bytes,
        std::string(1U << 20U, '['),
        std::string(1U << 20U, '='),
        std::string(1U << 20U, '\0'),
        "[no end\nVX=1\n",
        "[]\nVX=1\n[|]\nVX=1\n",
        "[" + std::string(100000, '|') + "]\nVX=1\n",
        "[%s%n|120]\nbrand=%s%n\n",
        "[X|120]\n" + longKey + "=" + longKey + "\nbrand=" + std::string(100000, 'b'),
    };
    for (const std::string& text : texts) {
        WriteWhole(kDatabase, text + "\n[Y|120]\nVX=1\nbrand=y\n");
        EXPECT_EQ(Check("Y", 120 * kGiB), 1) << text.substr(0, 20);
        EXPECT_EQ(VEMOFlashCacheIsSSDSupport("Y|120"), 1);
        FLASHCACHE_SUPPORT_SSD_LIST* list = nullptr;
        const int count = VEMOFlashCacheSupportSSDGet(&list);
        EXPECT_GT(count, 0);
        int nodes = 0;
        for (const auto* node = list; node != nullptr; node = node->Next) {
            ++nodes;
        }
        EXPECT_EQ(nodes, count);
        VEMOFlashCacheSupportSSDFree(list);
    }
    WriteWhole(kModelFile, "upnpmodelname=" + longKey + "\n");  // which is cut
    EXPECT_EQ(Check("X", 120 * kGiB), 0);
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
}

TEST_F(SsdSupportTest, AMillionSectionsAreReadInOneGo) {
    constexpr int kSections = 1000000;
    std::string text;
    for (int i = 0; i < kSections; ++i) {
        text += "[M" + std::to_string(i) + "|120]\nbrand=b\nVX=1\n";
    }
    WriteWhole(kDatabase, text);
    EXPECT_EQ(Check("M999999", 120 * kGiB), 1);
    EXPECT_EQ(VEMOFlashCacheIsSSDSupport("M999999|120"), 1);
    FLASHCACHE_SUPPORT_SSD_LIST* list = nullptr;
    EXPECT_EQ(VEMOFlashCacheSupportSSDGet(&list), kSections);
    VEMOFlashCacheSupportSSDFree(list);
}

// ---- The update ----

ToolRun Download(const std::string& address) {
    return {"/usr/bin/wget", "", {address, "-O", "/tmp/support_ssd.db", "--timeout=15"}};
}

TEST_F(SsdSupportTest, DownloadsFromTheAddressThatIsConfigured) {
    const std::string site(300, 'h');
    const std::pair<std::string, testing::Matcher<std::string>> models[] = {
        {"", MatchesRegex("http://[^?]*/ssddb/getdb\\.php")},
        {"support_ssd_update_site=\n", MatchesRegex("http://[^?]*/ssddb/getdb\\.php")},
        {"support_ssd_update_site=\"https://a/b?c=d e\"\n", "https://a/b?c=d e"},
        {"support_ssd_update_site=" + site + "\n", site.substr(0, 255)},
        {"support_ssd_update_site=http://short\n", "http://short"},  // nothing stays of the address before
    };
    for (const auto& [model, address] : models) {
        WriteWhole(kModelFile, model);
        spy::state() = {};
        spy::state().answer = [](const ToolRun&) { return Answer{}; };
        EXPECT_EQ(VEMOFlashCacheSupportSSDUpdate(), 0);
        ASSERT_EQ(spy::state().runs.size(), 2U);
        EXPECT_THAT(spy::state().runs[0].arguments.at(0), address);
        EXPECT_EQ(spy::state().runs[0], Download(spy::state().runs[0].arguments[0]));
        EXPECT_EQ(spy::state().runs[1], (ToolRun{"mv", "", {"/tmp/support_ssd.db", kDatabase}}));
        EXPECT_THAT(spy::state().log, IsEmpty());
    }
}

TEST_F(SsdSupportTest, AFailedStepIsTheLast) {
    for (const int status : {1, 4, 8, -1}) {
        spy::state() = {};
        spy::state().answer = [&](const ToolRun& run) {
            return Answer{run.program == "mv" ? 0 : status, ""};
        };
        EXPECT_EQ(VEMOFlashCacheSupportSSDUpdate(), -1);
        EXPECT_EQ(spy::state().runs.size(), 1U);
        EXPECT_THAT(spy::LoggedTexts(), ElementsAre("Cannot contact server"));
    }
    spy::state() = {};
    spy::state().answer = [](const ToolRun& run) { return Answer{run.program == "mv" ? 1 : 0, ""}; };
    EXPECT_EQ(VEMOFlashCacheSupportSSDUpdate(), -1);
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre("Move support_ssd.db to /etc.defaults fail"));

    spy::state() = {};
    std::filesystem::remove(kModelFile);  // no address: the real tool refuses
    EXPECT_EQ(VEMOFlashCacheSupportSSDUpdate(), -1);
    EXPECT_THAT(spy::state().runs, ElementsAre(ToolRun{"/usr/bin/wget", "", {}}));
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre("Cannot contact server"));
}

TEST_F(SsdSupportTest, MeetsTheUpdateServer) {
    unsetenv("http_proxy");
    const std::string served(100000, 's');
    WriteWhole("/tmp/served", served);
    const struct {
        const char* mode;
        int result;
        std::string downloaded;  // what is left of it
    } cases[] = {{"missing", -1, ""}, {"cut", -1, served.substr(0, 50000)}, {"good", 0, ""}};
    for (const auto& test : cases) {
        SCOPED_TRACE(test.mode);
        WriteWhole(kDatabase, "old");
        char address[64] = "";
        std::FILE* server = VLIBCPopen("/usr/bin/vemo-update-server", "r", test.mode, "/tmp/served", nullptr);
        ASSERT_NE(std::fgets(address, sizeof address, server), nullptr);
        EXPECT_EQ(VLIBCPclose(server), 0);
        WriteWhole(kModelFile, std::string("support_ssd_update_site=") + address);
        spy::state() = {};
        EXPECT_EQ(VEMOFlashCacheSupportSSDUpdate(), test.result);
        EXPECT_EQ(ReadWhole(kDatabase), test.result == 0 ? served : "old");
        EXPECT_EQ(ReadWhole("/tmp/support_ssd.db"), test.downloaded);
        EXPECT_EQ(spy::LoggedTexts().size(), test.result == 0 ? 0U : 1U);
    }
}

}  // namespace
