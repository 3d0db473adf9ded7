#include <fcntl.h>
#include <unistd.h>

#include "support/appliance.h"

namespace {

using namespace appliance;
using spy::ToolRun;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr int kBlocks = 40;

class DeleteTest : public CacheTest {
  protected:
    void SetUp() override {
        CacheTest::SetUp();
        Begin();
        SetFault("cleaning", "pause");
        WriteBlocks(kCache, kBlocks);
        Forget();
        CleanInPauses();
    }
    static void CleanInPauses() {
        spy::state().onSleep = [] { SetFault("cleaning", std::to_string(kBlocks)); };
    }
    // Deletes; on failure the last text that was logged must match.
    static int Delete(const char* logged, int fast = 0) {
        Forget();
        CleanInPauses();
        const int result = VEMOFlashCacheDelete(kCache, nullptr, fast);
        if (logged != nullptr) {
            EXPECT_THAT(spy::LoggedTexts(), Contains(MatchesRegex(logged)));
        }
        return result;
    }
    // What a removal runs, but for reading and the flush's own.
    static std::vector<std::string> Actions() {
        std::vector<std::string> actions;
        for (const ToolRun& run : spy::state().runs) {
            std::string action = run.program.substr(run.program.rfind('/') + 1);
            for (const std::string& argument : run.arguments) {
                action += ' ' + argument.substr(argument.rfind('.') + 1);
            }
            const bool removes = action.starts_with("dmsetup remove") || action.starts_with("flashcache_") ||
                                 action.starts_with("rmmod");
            if (removes || action.find("fast_remove=") != std::string::npos || action == "sysctl do_sync=1") {
                actions.push_back(action);
            }
        }
        return actions;
    }
    static bool IsLoaded(const char* module) { return VEMOFlashCacheIsKModuleLoad(module) == 1; }
    // Whether a cache lies on the SSD.
    static bool HasMetadata() { return RunProgram({"/usr/bin/flashcache_load", "-c", kSsd}) == 0; }
};

TEST_F(DeleteTest, ANormalRemovalWritesEverythingBack) {
    ASSERT_EQ(VEMOFlashCacheDelete(kCache, nullptr, 0), 0);
    EXPECT_THAT(Actions(),
                ElementsAre("sysctl fast_remove=0", "sysctl do_sync=1", "sysctl do_sync=1",
                            "dmsetup remove --retry cachedev_0", "flashcache_destroy -f /dev/md3",
                            "rmmod flashcache", "rmmod flashcache_vemo", "rmmod vemo_flashcache_control"));
    EXPECT_TRUE(HoldsBlocks(kSpace, kBlocks));
    EXPECT_FALSE(HasMetadata());
    EXPECT_NE(access(kCache, F_OK), 0);
    EXPECT_EQ(FlushStateOf(), "flush_done");  // the entry is the caller's
    EXPECT_FALSE(IsLoaded("flashcache") || IsLoaded("flashcache_vemo") ||
                 IsLoaded("vemo_flashcache_control"));
}

TEST_F(DeleteTest, AFastRemovalDropsTheDirtyBlocks) {
    ASSERT_EQ(VEMOFlashCacheDelete(kCache, nullptr, 7), 0);
    EXPECT_THAT(Actions(), ElementsAre("sysctl fast_remove=1", "dmsetup remove --retry cachedev_0",
                                       "flashcache_destroy -f /dev/md3", "rmmod flashcache",
                                       "rmmod flashcache_vemo", "rmmod vemo_flashcache_control"));
    EXPECT_FALSE(HoldsBlocks(kSpace, kBlocks));
    EXPECT_FALSE(HasMetadata());
    EXPECT_EQ(FlushStateOf(), "");
}

TEST_F(DeleteTest, ACancelledFlushDoesNotStopItAndNothingIsLost) {
    spy::state().onSleep = [] {
        EXPECT_EQ(VEMOFlashCacheFlushCancel(kCache), 1);
        SetFault("cleaning", "run");
    };
    EXPECT_EQ(VEMOFlashCacheDelete(kCache, nullptr, 0), 0);
    EXPECT_EQ(FlushStateOf(), "normal");
    EXPECT_TRUE(HoldsBlocks(kSpace, kBlocks));  // fast_remove is 0: the kernel writes them back
}

TEST_F(DeleteTest, StoppedAtEachStageItGoesOnWhenRepeated) {
    SetFault("tool.dmsetup", "fail");
    EXPECT_EQ(Delete("Failed to get status of flashcache \\[/dev/mapper/cachedev_0\\], "
                     "\\[0x0600 flashcache_delete.cpp:[0-9]+\\]"),
              -1);
    EXPECT_EQ(VLIBCErrGet(), 0x0600);
    EXPECT_THAT(Actions(), IsEmpty());
    SetFault("tool.dmsetup", "ok");

    SetFault("knob.fast_remove", "reject");
    EXPECT_EQ(Delete("Fail to set fast_remove of cache \\[/dev/mapper/cachedev_0\\] to 0. "
                     "\\[0x8100 flashcache_sysctl_set.cpp:[0-9]+\\]"),
              -1);
    EXPECT_EQ(KnobValue("fast_remove"), 1);
    EXPECT_EQ(FlushStateOf(), "");
    SetFault("knob.fast_remove", "ok");

    SetFault("writeback", "fail");
    EXPECT_EQ(Delete("Fail to Flush cache \\[/dev/mapper/cachedev_0\\]. "), -1);
    EXPECT_EQ(KnobValue("fast_remove"), 0);
    EXPECT_EQ(FlushStateOf(), "normal");
    EXPECT_EQ(DirtyBlocks(), kBlocks);
    SetFault("writeback", "ok");

    const int holder = open(kCache, O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(Delete("Failed to unload fcache \\[/dev/mapper/cachedev_0\\] \\[0x.*\\]"), -1);
    EXPECT_EQ(DirtyBlocks(), 0);
    EXPECT_EQ(VEMOFlashCacheHandleStateGet(kSsd, kSpace), FLASHCACHE_HANDLE_STATE_FLUSH);
    EXPECT_TRUE(HasMetadata() && IsLoaded("flashcache"));
    close(holder);

    SetFault("tool.flashcache_destroy", "fail:3x1");
    EXPECT_EQ(Delete("failed to destroy cache \\[/dev/md3\\], errno=.*, ret=3"), 0);
    EXPECT_TRUE(HasMetadata());  // the one failure that is only told
    EXPECT_TRUE(HoldsBlocks(kSpace, kBlocks));
    EXPECT_EQ(VEMOFlashCacheDestroy(kSsd), 0);
    EXPECT_FALSE(HasMetadata());
}

TEST_F(DeleteTest, AModuleThatStaysIsOnlyReported) {
    SetFault("tool.rmmod", "fail:2@1x1");
    EXPECT_EQ(Delete("Remove module \\[flashcache_vemo\\] failed,  errno=.*, ret=2"), 0);
    EXPECT_TRUE(IsLoaded("flashcache_vemo"));
    EXPECT_FALSE(IsLoaded("vemo_flashcache_control"));
}

TEST_F(DeleteTest, TheModulesStayForAnotherCache) {
    CreateCache(FLASHCACHE_WRITE_BACK, "/dev/md4", "/dev/vg1/volume_2");
    EXPECT_EQ(Delete(nullptr, 1), 0);
    EXPECT_EQ(Actions().back(), "flashcache_destroy -f /dev/md3");
    EXPECT_TRUE(IsLoaded("flashcache"));
}

using DeleteOtherModesTest = CacheTest;

TEST_F(DeleteOtherModesTest, CachesThatHoldNothingDirtyAreOnlyTakenDown) {
    EXPECT_EQ(VEMOFlashCacheDelete(nullptr, nullptr, 0), -1);
    EXPECT_EQ(VEMOFlashCacheDelete("/dev/mapper/vg1-lv", nullptr, 0), -1);
    EXPECT_EQ(VLIBCErrGet(), 0x0D00);
    EXPECT_THAT(spy::state().runs, IsEmpty());
    std::string ssd = kSsd;
    std::string space = kSpace;
    FLASHCACHE_STAT thru{};
    thru.SSDDevPath = ssd.data();
    thru.SpacePath = space.data();
    for (const FLASHCACHE_WRITE_MODE mode : {FLASHCACHE_WRITE_AROUND, FLASHCACHE_WRITE_THRU}) {
        Begin(mode);
        if (mode == FLASHCACHE_WRITE_THRU) {  // has no status, so only the caller can tell
            EXPECT_EQ(VEMOFlashCacheDelete(kCache, nullptr, 0), -1);
            EXPECT_EQ(VLIBCErrGet(), 0x0600);
        }
        EXPECT_EQ(VEMOFlashCacheDelete(kCache, mode == FLASHCACHE_WRITE_THRU ? &thru : nullptr, 0), 0);
        EXPECT_THAT(KnobWrites(), IsEmpty());
        EXPECT_THAT(spy::state().runs,
                    testing::Not(Contains(testing::Field(&ToolRun::program, "/usr/bin/flashcache_destroy"))));
        EXPECT_EQ(VEMOFlashCacheIsKModuleLoad("flashcache"), 0);
    }
}

}  // namespace
