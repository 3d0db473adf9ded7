#include "support/appliance.h"

namespace {

using namespace appliance;
using spy::Answer;
using spy::ToolRun;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;

using Runs = std::vector<ToolRun>;

constexpr const char* kCreate = "/usr/bin/flashcache_create";
const std::string kAllModules =
    "Module                  Size  Used by\nflashcache_vemo        126976  0\nflashcache             126976  "
    "1 "
    "flashcache_vemo\nvemo_flashcache_control 126976  1 flashcache\n";

class CreateTest : public LibraryTest {
  protected:
    CreateTest() {
        param_.SSDDevPath = kSsd;
        param_.SpacePath = kSpace;
        param_.CacheSizeKB = 1048576;
        param_.Policy.WriteMode = FLASHCACHE_WRITE_BACK;
        AnswerAll();
    }
    // Every program succeeds; lsmod prints this.
    static void AnswerAll(const std::string& modules = kAllModules) {
        spy::state().answer = [modules](const ToolRun& run) {
            return Answer{0, run.program == "/sbin/lsmod" ? modules : ""};
        };
    }
    static void AnswerOne(const std::string& program, const Answer& answer) {
        spy::state().answer = [program, answer](const ToolRun& run) {
            return run.program == program ? answer
                                          : Answer{0, run.program == "/sbin/lsmod" ? kAllModules : ""};
        };
    }
    // The runs of one program.
    static Runs RunsOf(const std::string& program) {
        Runs runs;
        for (const ToolRun& run : spy::state().runs) {
            if (run.program == program) {
                runs.push_back(run);
            }
        }
        return runs;
    }

    FLASHCACHE_CREATE_PARAM param_{};
};

TEST_F(CreateTest, ModulesThatAreMissingAreInsertedInOrder) {
    EXPECT_EQ(CheckAndInsertKernelModule(), 0);
    EXPECT_EQ(spy::state().runs, Runs(3, {"/sbin/lsmod", "r", {}}));
    AnswerAll("flashcache_vemo 4096 0\n");
    EXPECT_EQ(VEMOFlashCacheIsKModuleLoad("flashcache"), 0);
    AnswerAll("");
    EXPECT_EQ(CheckAndInsertKernelModule(), 0);
    EXPECT_EQ(RunsOf("/sbin/insmod"), (Runs{{"/sbin/insmod", "", {"/lib/modules/vemo_flashcache_control.ko"}},
                                            {"/sbin/insmod", "", {"/lib/modules/flashcache.ko"}},
                                            {"/sbin/insmod", "", {"/lib/modules/flashcache_vemo.ko"}}}));
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
}

TEST_F(CreateTest, AModuleThatCannotBeInsertedEndsIt) {
    spy::state().answer = [](const ToolRun& run) {
        const bool second = run.program == "/sbin/insmod" && RunsOf("/sbin/insmod").size() == 2;
        return Answer{second ? 1 : 0, "", run.program != "/sbin/lsmod"};
    };
    EXPECT_EQ(CheckAndInsertKernelModule(), -1);
    EXPECT_THAT(RunsOf("/sbin/insmod"), SizeIs(2));
    EXPECT_EQ(VEMOFlashCacheIsKModuleLoad(nullptr), 0);
    EXPECT_EQ(CheckAndInsertSingleModule(nullptr), -1);
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre("/sbin/lsmod failed", "/sbin/lsmod failed",
                            "Insert Module failed, path=/lib/modules/flashcache.ko",
                            "Module name should not be NULL", "Module Name should not be NULL"));
}

TEST_F(CreateTest, ARefusedSsdIsNotWipedAndAFailedWipeIsRecorded) {
    EXPECT_EQ(VEMOFlashCacheDestroy(nullptr), -1);
    EXPECT_EQ(VEMOFlashCacheDestroy("md3"), -1);
    EXPECT_EQ(VLIBCErrGet(), 0x0D00);
    EXPECT_THAT(spy::state().runs, IsEmpty());
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
    EXPECT_EQ(VEMOFlashCacheDestroy(kSsd), 0);
    AnswerOne("/usr/bin/flashcache_destroy", {1, ""});
    EXPECT_EQ(VEMOFlashCacheDestroy(kSsd), 0);
    EXPECT_EQ(VLIBCErrGet(), 0x8100);
    EXPECT_EQ(spy::state().runs, Runs(2, {"/usr/bin/flashcache_destroy", "", {"-f", kSsd}}));
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre("Cache Destroy: /usr/bin/flashcache_destroy -f /dev/md3",
                            "Success to destroy cache [/dev/md3]",
                            "Cache Destroy: /usr/bin/flashcache_destroy -f /dev/md3",
                            MatchesRegex("failed to destroy cache \\[/dev/md3\\], errno=.*, ret=1")));
}

TEST_F(CreateTest, StepsAndCommandLines) {
    char path[64] = "";
    param_.Policy.DirtyThreshPercent = 40;
    ASSERT_EQ(VEMOFlashCacheCreate(&param_, path, sizeof path), 0);
    EXPECT_STREQ(path, kCache);
    std::vector<std::string> programs;
    for (const ToolRun& run : spy::state().runs) {
        programs.push_back(run.program.substr(run.program.rfind('/') + 1));
    }
    EXPECT_THAT(programs, ElementsAre("lsmod", "lsmod", "lsmod", "flashcache_destroy", "flashcache_create",
                                      "sysctl", "sysctl", "sysctl", "sysctl"));
    const std::string rest = "-s 1048576k -p back cachedev_0 /dev/md3 /dev/vg1/volume_1";
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre(testing::_, testing::_, "Create cache, version=original", "Create original cache",
                            "Create Cache: /usr/bin/flashcache_create " + rest));

    spy::state().log.clear();
    param_.CacheVersion = FLASHCACHE_VERSION_NEW;
    param_.CacheDevPath = "/dev/mapper/cachedev_7";
    param_.Policy.WriteMode = FLASHCACHE_WRITE_BACK_CRASH;
    Touch("/flashcache-create-64mb");
    Touch("/dev/mapper/cachedev_7");  // not looked for
    ASSERT_EQ(VEMOFlashCacheCreate(&param_, nullptr, 64), 0);
    EXPECT_EQ(
        RunsOf(kCreate),
        (Runs{{kCreate, "rE", {"-s", "1048576k", "-p", "back", "cachedev_0", kSsd, kSpace}},
              {kCreate, "rE", {"-n", "-s", "65536k", "-p", "back_crash", "cachedev_7", kSsd, kSpace}}}));
    EXPECT_EQ(spy::LoggedTexts().front(), "Fix cache size to 64 MB");
    EXPECT_EQ(spy::LoggedTexts().back(),
              "Create Cache: /usr/bin/flashcache_create -n -s 65536k -p back_crash "
              "cachedev_7 /dev/md3 /dev/vg1/volume_1");
}

TEST_F(CreateTest, WhatIsWrongIsRefusedBeforeAnythingRuns) {
    const auto refuses = [&](auto change) {
        FLASHCACHE_CREATE_PARAM param = param_;
        change(param);
        VLIBCErrSetEx(0, "", 0);
        return VEMOFlashCacheCreate(&param, nullptr, 0) == -1 && VLIBCErrGet() == 0x0D00;
    };
    EXPECT_TRUE(refuses([](auto& param) { param.SSDDevPath = nullptr; }));
    EXPECT_TRUE(refuses([](auto& param) { param.SpacePath = nullptr; }));
    EXPECT_TRUE(refuses([](auto& param) { param.CacheSizeKB = 0; }));
    EXPECT_TRUE(refuses([](auto& param) { param.CacheDevPath = "/dev/mapper/vg1-lv"; }));
    EXPECT_EQ(VEMOFlashCacheCreate(nullptr, nullptr, 0), -1);
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
    EXPECT_TRUE(refuses([](auto& param) { param.Policy.WriteMode = 3; }));
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre("Incorrect mode = 3", "Get incorrect write mode = 3"));
    EXPECT_THAT(spy::state().runs, IsEmpty());
}

TEST_F(CreateTest, AnUnknownVersionIsSeenAfterTheWipe) {
    param_.CacheVersion = 2;
    EXPECT_EQ(VEMOFlashCacheCreate(&param_, nullptr, 0), -1);
    EXPECT_THAT(RunsOf("/usr/bin/flashcache_destroy"), SizeIs(1));
    EXPECT_THAT(RunsOf(kCreate), IsEmpty());
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre(testing::_, testing::_, "Create cache, version=new(vemo)",
                                                "Unknown cache version: 2"));
    EXPECT_EQ(VLIBCErrGet(), 0);
    param_.SSDDevPath = "md3";
    EXPECT_EQ(VEMOFlashCacheCreate(&param_, nullptr, 0), -1);
    EXPECT_EQ(VLIBCErrGet(), 0x0D00);
    EXPECT_EQ(spy::LoggedTexts().back(), "Fail to destory cache on [md3]");
}

TEST_F(CreateTest, AToolThatSaysAnythingHasFailed) {
    const struct {
        Answer answer;
        std::vector<std::string> logged;
    } cases[] = {
        {{0, "warning\nthe rest"}, {"warning\n", "the rest", "Get error messages, Create cache failed"}},
        {{0, "\n"}, {"\n", "Get error messages, Create cache failed"}},
        {{0, "", false}, {"Popen failed"}},
    };
    for (const auto& test : cases) {
        spy::state().log.clear();
        AnswerOne(kCreate, test.answer);
        EXPECT_EQ(VEMOFlashCacheCreate(&param_, nullptr, 0), -1);
        const std::vector<std::string> logged = spy::LoggedTexts();
        EXPECT_EQ(std::vector(logged.begin() + 5, logged.end()), test.logged);
        EXPECT_THAT(RunsOf("/sbin/sysctl"), IsEmpty());
    }
    AnswerOne("/sbin/sysctl", {1, ""});
    EXPECT_EQ(VEMOFlashCacheCreate(&param_, nullptr, 0), -1);
    EXPECT_EQ(VLIBCErrGet(), 0x8100);
}

TEST_F(CreateTest, ThePathMustFitItsBuffer) {
    for (const auto& [size, result] : {std::pair{22, -1}, {23, 0}, {0, 0}, {-5, 0}}) {
        char path[64] = "untouched";
        EXPECT_EQ(VEMOFlashCacheCreate(&param_, path, size), result) << size;
        EXPECT_STREQ(path, size == 23 ? kCache : "untouched");
    }
    EXPECT_THAT(spy::LoggedTexts(), Contains("size of buffer is not enough (22 < 22) "));
}

TEST_F(CreateTest, TheFirstFreeNameIsTaken) {
    char path[64] = "";
    for (int number = 0; number < 1000; ++number) {
        if (number != 1 && number != 999) {
            Touch("/dev/mapper/cachedev_" + std::to_string(number));
        }
    }
    for (const char* expected : {"/dev/mapper/cachedev_1", "/dev/mapper/cachedev_999"}) {
        EXPECT_EQ(VEMOFlashCacheCreate(&param_, path, sizeof path), 0);
        EXPECT_STREQ(path, expected);
        Touch(expected);
    }
    spy::state().runs.clear();
    EXPECT_EQ(VEMOFlashCacheCreate(&param_, path, sizeof path), -1);
    EXPECT_EQ(spy::LoggedTexts().back(), "NOT FOUND new cachedev, counts: 1000");
    EXPECT_THAT(spy::state().runs, IsEmpty());
}

TEST_F(CreateTest, OnTheApplianceAFailedToolLeavesNoCache) {
    spy::state() = {};
    for (const char* fault : {"fail", "crash", "rubbish", "flood"}) {
        SetFault("tool.flashcache_create", fault);
        EXPECT_EQ(VEMOFlashCacheCreate(&param_, nullptr, 0), -1) << fault;
        EXPECT_EQ(VEMOFlashCacheStatGet(nullptr, nullptr), -1);
    }
    SetFault("tool.flashcache_create", "ok");
    SetFault("knob.reclaim_policy", "reject");
    EXPECT_EQ(VEMOFlashCacheCreate(&param_, nullptr, 0), -1);
    EXPECT_EQ(KnobValue("fast_remove"), 0);  // the device stays, as far as it is tuned
    EXPECT_EQ(VEMOFlashCacheUnload(kCache), 0);
    SetFault("knob.reclaim_policy", "ok");
    EXPECT_EQ(VEMOFlashCacheCreate(&param_, nullptr, 0), 0);
    EXPECT_EQ(KnobValue("fast_remove"), 1);
}

}  // namespace
